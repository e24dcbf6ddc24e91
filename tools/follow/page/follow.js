"use strict";
// Asks for state.json beside this page, shows it, and goes on counting where nobody answers. What the
// device says is only ever set as text.
(() => {
  const pollMs = 1000;
  const patienceMs = 4000;
  const silenceSeconds = 30;
  const awayAfter = 2; // one request may get lost
  const order = ["download", "write", "verify"];

  const element = (id) => document.getElementById(id);
  const main = document.querySelector("main");
  let state = null;     // the last that the device said
  let heardMs = 0;      // when it said it, by this page's clock
  let answeredMs = performance.now();
  let failures = 0;
  let missing = false;  // the device answers, but has no state

  const set = (node, text) => {
    if (node.textContent !== text) node.textContent = text; // a live region speaks at each change
  };
  const number = (value) => (Number.isFinite(value) ? value : 0);
  const text = (value) => (typeof value === "string" ? value : "");
  const clock = (seconds) => {
    const whole = Math.max(0, Math.floor(seconds));
    return Math.floor(whole / 60) + ":" + String(whole % 60).padStart(2, "0");
  };

  const stepsOf = (view) => (view.steps && typeof view.steps === "object" ? view.steps : {});

  // The step that lasts or lasted: the last that was seen.
  const presentStep = (view) => order.findLastIndex((name) => stepsOf(view)[name]);

  const showSteps = (view, since) => {
    const present = presentStep(view);
    const done = view.outcome === "done";
    const failed = typeof view.outcome === "string" && !done;
    for (const item of element("steps").children) {
      const index = order.indexOf(item.dataset.step);
      const record = stepsOf(view)[item.dataset.step];
      let mark = "";
      let note = "";
      if (index < 0) {
        mark = done ? "over" : "";
      } else if (done || index < present) {
        mark = "over";
        note = record ? clock(number(record.seconds)) : "";
      } else if (index === present || (failed && present < 0 && index === 0)) {
        mark = failed ? "failed" : "now";
        note = record ? clock(number(record.seconds) + (view.active ? since : 0)) : "";
      }
      item.dataset.mark = mark;
      if (mark === "now") item.setAttribute("aria-current", "step");
      else item.removeAttribute("aria-current");
      set(item.querySelector(".note"), note);
    }
  };

  const showFigures = (view, since) => {
    const overall = Math.min(100, Math.max(0, Math.round(number(view.overall))));
    element("fill").style.width = overall + "%";
    element("bar").setAttribute("aria-valuenow", String(overall));
    set(element("percent"), overall + " %");
    const rest = Number.isFinite(view.rest_seconds) ? view.rest_seconds - since : -1;
    const of = presentStep(view) === 0 ? " of the download" : "";
    set(element("rest"), view.active && rest > 0 ? "about " + clock(rest + 0.999) + of + " left" : "");
    const taken = number(view.seconds) + (view.active ? since : 0);
    set(element("taken"), view.run > 0 ? "Running time " + clock(taken) : "");
    document.title = (view.active ? overall + " % " : "") + (text(view.title) || "Firmware upgrade");
  };

  const show = () => {
    const nowMs = performance.now();
    const away = failures >= awayAfter;
    if (!state) {
      main.dataset.state = away ? "away" : "asking";
      set(element("title"), missing ? "Waiting" : "Asking the device");
      set(element("sentence"), missing ? "Nothing is known of an upgrade on this device so far."
        : away ? "The device does not answer. This page goes on asking." : "One moment.");
      return;
    }
    const since = (nowMs - heardMs) / 1000;
    const ended = typeof state.outcome === "string";
    main.dataset.state = ended ? (state.outcome === "done" ? "done" : "failed") : away ? "away" : "live";
    set(element("label"), state.attempt > 1 && !ended
      ? "Firmware upgrade, attempt " + number(state.attempt) + " of 3" : "Firmware upgrade");
    set(element("title"), text(state.title) + (state.state === "other-error" ? ": " + text(state.error) : ""));
    set(element("sentence"), away && !ended ? text(state.away) : text(state.sentence));
    set(element("advice"), text(state.advice));
    showFigures(state, since);
    showSteps(state, since);
    const silent = number(state.silent_seconds) + since;
    const quiet = state.active && !away && silent >= silenceSeconds;
    set(element("notice"), quiet ? "No word from the upgrade for long. " + text(state.silence)
      : away && ended ? text(state.away) : "");
    set(element("quiet"), away ? "No answer for " + clock((nowMs - answeredMs) / 1000)
      : quiet ? "No word for " + clock(silent) : "");
  };

  // How old a state is that comes from a file: by the clock of the device, which also wrote it.
  const ageMs = (response, view) => {
    const served = Date.parse(response.headers.get("Date") || "");
    const age = served - number(view.time) * 1000 - 1000; // the header has whole seconds
    return view.active && age > 0 && age < 1e9 ? age : 0;
  };

  const take = (view, response) => {
    const fresh = !state || state.time !== view.time;
    state = view;
    if (fresh) heardMs = performance.now() - ageMs(response, view);
  };

  const ask = async () => {
    const stop = new AbortController();
    const timer = setTimeout(() => stop.abort(), patienceMs);
    try {
      const response = await fetch("state.json", { cache: "no-store", signal: stop.signal });
      missing = response.status === 404;
      if (!missing) {
        if (!response.ok) throw new Error("no state");
        const view = await response.json();
        if (!view || typeof view !== "object" || view.format !== 1) throw new Error("no state");
        take(view, response);
      }
      failures = 0;
      answeredMs = performance.now();
    } catch (failure) {
      failures++; // said on the page
    } finally {
      clearTimeout(timer);
    }
    show();
    setTimeout(ask, pollMs);
  };

  setInterval(show, 500); // counts on between the answers, and without them
  ask();
})();
