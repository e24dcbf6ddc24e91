# SPDX-License-Identifier: GPL-2.0-or-later
"""The page in a real Chromium: what it shows of each recording, the network lost and found, odd texts.

What the states mean is tested with the follower; here, that a page shows what the follower says.
UPGRADE_BUILD names the build folder (default build/release).
"""
import contextlib
import http.client
import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import time

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.service import Service

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDER = ROOT / os.environ.get("UPGRADE_BUILD", "build/release") / "tools/follow"
FOLLOW = FOLDER / "upgrade-follow"
RECORDINGS = ROOT / "tests/recordings"
HEAD = '{"format":"upgrade datagrams","version":1}\n'
PATIENCE = 10
STEPS = ["download", "write", "verify", "done"]
FAILED = {"refused-url": "download", "refused-package": "download", "failed-download": "download",
          "failed-upgrade": "write", "reset": "write"}  # recording: the step that failed
SEEN = """
    const text = (id) => document.getElementById(id).textContent;
    const box = (id) => { const r = document.getElementById(id).getBoundingClientRect();
                          return [r.left, r.top, r.width]; };
    return {state: document.querySelector("main").dataset.state, title: text("title"),
            sentence: text("sentence"), advice: text("advice"), notice: text("notice"),
            percent: text("percent"), quiet: text("quiet"), taken: text("taken"),
            value: Number(document.getElementById("bar").getAttribute("aria-valuenow")),
            marks: [...document.querySelectorAll("li")].map((li) => li.dataset.mark || ""),
            current: document.querySelectorAll("[aria-current]").length,
            boxes: [box("bar"), box("steps"), box("said")],
            height: document.querySelector("main").offsetHeight,
            wide: document.documentElement.scrollWidth > innerWidth}"""
# The smallest contrast of a text (WCAG 2.1), and the ground of all of them.
CONTRAST = r"""
    const light = (color) => color.match(/[\d.]+/g).slice(0, 3).map((c) => Number(c) / 255)
        .map((c) => c <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)
        .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
    const ground = getComputedStyle(document.querySelector("main")).backgroundColor;
    const texts = [...document.querySelectorAll("main *")].filter((e) =>
        e.children.length === 0 && e.textContent.trim() !== "" && e.offsetWidth > 0);
    return [Math.min(...texts.map((e) => {
        const [a, b] = [light(getComputedStyle(e).color), light(ground)];
        return (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
    })), ground];"""


class Page:
    def __init__(self, driver):
        self.driver = driver
        self.run = driver.execute_script
        self.lost = False  # the server goes away, on purpose

    def seen(self):
        return self.run(SEEN)

    def wait(self, what, **wanted):
        """Until the page shows `wanted`: texts that what it shows begins with."""
        end = time.monotonic() + PATIENCE
        while not all((seen := self.seen())[key].startswith(text) for key, text in wanted.items()):
            assert time.monotonic() < end, (what, wanted, seen)
            time.sleep(0.05)
        return seen

    def size(self, width, height):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def requests(self):
        """The URLs asked for since the last call."""
        messages = [json.loads(entry["message"])["message"]
                    for entry in self.driver.get_log("performance")]
        return {m["params"]["request"]["url"] for m in messages
                if m["method"] == "Network.requestWillBeSent"}


@pytest.fixture(scope="session")
def driver():
    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which("chromium")
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--hide-scrollbars"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    with webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options) as chrome:
        yield chrome


@pytest.fixture
def page(driver):
    """A window of a phone's width; at the end, no console error and no request but the two paths."""
    page = Page(driver)
    driver.get("about:blank")
    page.requests()
    page.size(320, 700)
    yield page
    errors = [entry["message"] for entry in driver.get_log("browser")]
    if page.lost:  # what the browser itself says of a server that is gone
        errors = [e for e in errors if "state.json - Failed to load resource" not in e]
    assert errors == []
    paths = {re.sub(r"^http://127\.0\.0\.1:\d+", "", url) for url in page.requests()}
    assert paths - {"data:,", "about:blank"} <= {"/", "/follow.html", "/state.json"}


@pytest.fixture
def replay(page):
    """replay(file, speed): opens the page of a follower that replays a recording."""
    with contextlib.ExitStack() as stack:

        def start(recording, speed=0):
            follower = stack.enter_context(subprocess.Popen(
                [FOLLOW, "--quiet", "--web", "0", "--linger", "60", "--speed", str(speed),
                 "--replay", recording], stderr=subprocess.PIPE, text=True))
            stack.callback(follower.kill)
            page.driver.get(re.search(r"http://\S+", follower.stderr.readline()).group())

        yield start


@contextlib.contextmanager
def web_server(folder, port=0):
    """The device's own web server, of plain files, with the page among them."""
    shutil.copy(FOLDER / "follow.html", folder)
    command = [sys.executable, "-u", "-m", "http.server", "-b", "127.0.0.1", "-d", folder, str(port)]
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                          text=True) as server:
        try:
            yield int(re.search(r"port (\d+)", server.stdout.readline()).group(1))
        finally:
            server.kill()


def test_each_recording_is_shown_as_it_ended_and_can_be_read(page, replay):
    heights, grounds = set(), set()
    for recording in sorted(RECORDINGS.glob("*.jsonl")):
        lines = subprocess.run([FOLLOW, "--json", "--speed=0", "--replay", recording],
                               capture_output=True, check=False).stdout.splitlines()
        last, failed = json.loads(lines[-1]), FAILED.get(recording.stem)
        replay(recording)
        seen = page.wait(recording.stem, title=last["title"], sentence=last["sentence"])
        assert (seen["percent"], seen["value"]) == (f"{last['overall']} %", last["overall"])
        assert seen["advice"] == last["advice"] != "" and not seen["wide"]
        marks = dict(zip(STEPS, seen["marks"]))
        assert [step for step in STEPS if marks[step] == "failed"] == ([failed] if failed else [])
        assert (seen["state"], marks["done"]) == (("failed", "") if failed else ("done", "over"))
        assert seen["current"] == 0 and seen["taken"].startswith("Running time ")
        heights.add(seen["height"])
        for scheme in ("light", "dark"):
            page.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
                "features": [{"name": "prefers-color-scheme", "value": scheme}]})
            contrast, ground = page.run(CONTRAST)
            assert contrast >= 4.5, (recording, scheme)
            grounds.add(ground)
    assert len(heights) == 1  # the longest text has its room
    assert len(grounds) == 2


def test_a_whole_upgrade_moves_forward_and_nothing_jumps(page, replay):
    page.size(900, 700)
    replay(RECORDINGS / "http.jsonl", speed=1.5)
    seen = []
    while not seen or seen[-1]["title"] != "Done":
        seen.append(page.seen())
        assert len(seen) < 1000
        time.sleep(0.05)
    assert {"Downloading", "Writing", "Finishing", "Done"} <= {s["title"] for s in seen}
    values = [s["value"] for s in seen]
    assert values == sorted(values) and len(set(values)) > 4 and values[-1] == 100
    assert all(s["current"] == s["marks"].count("now") for s in seen)
    assert len({json.dumps(s["boxes"]) for s in seen}) == 1
    assert page.run("return document.querySelectorAll('[role=status], [aria-live]').length") == 2
    assert page.run("return document.querySelectorAll('a, button, input, [tabindex]').length") == 0


def test_the_network_is_lost_and_found(page, tmp_path):
    """As on a device: its web server goes with the network, the state file tells the rest."""
    page.lost = True
    sender = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    with contextlib.ExitStack() as stack:
        follower = stack.enter_context(subprocess.Popen(
            [FOLLOW, "--quiet", "--socket", tmp_path / "socket", "--state", tmp_path / "state.json"]))
        stack.callback(follower.kill)
        while sender.connect_ex(str(tmp_path / "socket")) != 0:
            time.sleep(0.01)
        with web_server(tmp_path) as port:
            page.driver.get(f"http://127.0.0.1:{port}/follow.html")
            page.wait("no upgrade yet", title="Waiting")
            sender.send(b"UPGRD_STAGE=DOWNLOADING")
            sender.send(b"UPGRD_PERCENTAGE=100")
            page.wait("downloaded", title="Checking")
        sender.send(b"UPGRD_STAGE=WRITING")
        away = page.wait("no answer", state="away")
        assert "stopped its network while it writes" in away["sentence"]
        assert "Do not switch the device off" in away["sentence"]
        page.wait("counts on", quiet="No answer for 0:05")
        sender.send(b"UPGRD_STAGE=VERIFYING")
        sender.send(b"UPGRD_STAGE=DONE")
        assert follower.wait(5) == 0
        with web_server(tmp_path, port):
            page.wait("found", state="done", percent="100 %")


def test_a_late_page_learns_how_long_nothing_was_heard(page, tmp_path):
    """The follower is gone; the state it left is of long ago, by the device's own clock."""
    recording, state = tmp_path / "cut.jsonl", tmp_path / "state.json"
    recording.write_text(HEAD + '{"at":0,"text":"UPGRD_STAGE=WRITING"}\nx')
    subprocess.run([FOLLOW, "-q", "--replay", recording, "--state", state], check=False,
                   stderr=subprocess.DEVNULL)
    state.write_text(json.dumps(json.loads(state.read_text()) | {"time": time.time() - 125}))
    with web_server(tmp_path) as port:
        page.driver.get(f"http://127.0.0.1:{port}/follow.html")
        seen = page.wait("an old state", quiet="No word for 2:0")
        assert "The flash may refuse a block" in seen["notice"]


def test_text_is_never_markup(page, replay, tmp_path):
    evil = "<img src=x onerror=alert(1)><b>\x1b[2J</script>" + "x" * 15
    recording = tmp_path / "evil.jsonl"
    recording.write_text(HEAD + json.dumps({"at": 0, "text": "UPGRD_ERROR=" + evil}) + "\n")
    replay(recording)
    seen = page.wait("an unknown error", title="Upgrade failed: " + evil)
    assert page.run("return document.querySelectorAll('img, b').length") == 0 and not seen["wide"]


def test_the_server_has_two_paths_and_strict_headers(page, replay):
    replay(RECORDINGS / "http.jsonl")
    server = page.driver.current_url.split("/")[2]

    def ask(path, method="GET"):
        with contextlib.closing(http.client.HTTPConnection(server, timeout=PATIENCE)) as connection:
            connection.request(method, path)
            answer = connection.getresponse()
            return answer.status, dict(answer.getheaders()), answer.read()

    for path, kind in (("/", "text/html; charset=utf-8"), ("/follow.html", "text/html; charset=utf-8"),
                       ("/state.json", "application/json")):
        status, headers, body = ask(path)
        policy = headers["Content-Security-Policy"]
        assert status == 200 and "default-src 'none'" in policy and "unsafe" not in policy
        assert "Server" not in headers and headers.items() >= {
            "Content-Type": kind, "X-Content-Type-Options": "nosniff", "Cache-Control": "no-store"}.items()
        assert body.startswith(b'{"format":1,') or body == (FOLDER / "follow.html").read_bytes()
    for path, method in (("/../etc/passwd", "GET"), ("/state.json/", "GET"), ("/follow_html", "GET"),
                         ("/", "POST"), ("/" + "x" * 9000, "GET")):
        assert ask(path, method)[0] >= 400, path
