# SPDX-License-Identifier: GPL-2.0-or-later
"""The page in a real Chromium: every recording replayed, the network lost and found, odd texts.

UPGRADE_BUILD names the build folder (default build/release). FOLLOW_PICTURE=FILE also takes the
picture of the README.
"""
import contextlib
import http.server
import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import threading
import time

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.service import Service

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / os.environ.get("UPGRADE_BUILD", "build/release")
FOLLOW = BUILD / "tools/follow/upgrade-follow"
PAGE = BUILD / "tools/follow/follow.html"
RECORDINGS = ROOT / "tests/recordings"
PATIENCE = 10

# recording: what the page says at the end, and the step that failed
ENDS = {
    "http": ("Done", None),
    "tftp": ("Done", None),
    "refused-url": ("Address refused", "download"),
    "refused-package": ("Package refused", "download"),
    "failed-download": ("Download failed", "download"),
    "written-twice": ("Done", None),
    "failed-upgrade": ("Upgrade failed", "write"),
    "above-100": ("Done", None),
    "reset": ("Lost", "write"),
}


class Page:
    def __init__(self, driver):
        self.driver = driver

    def run(self, script):
        return self.driver.execute_script(script)

    def text(self, name):
        return self.run(f"return document.getElementById('{name}').textContent")

    def seen(self):
        return self.run("""
            const text = (id) => document.getElementById(id).textContent;
            const box = (id) => { const r = document.getElementById(id).getBoundingClientRect();
                                  return [r.left, r.top, r.width]; };
            return {state: document.querySelector("main").dataset.state, title: text("title"),
                    sentence: text("sentence"), advice: text("advice"), notice: text("notice"),
                    percent: text("percent"), quiet: text("quiet"), taken: text("taken"),
                    value: Number(document.getElementById("bar").getAttribute("aria-valuenow")),
                    marks: [...document.querySelectorAll("li")].map((li) => li.dataset.mark || ""),
                    boxes: [box("bar"), box("steps"), box("said")],
                    height: document.querySelector("main").offsetHeight,
                    wide: document.documentElement.scrollWidth > innerWidth}""")

    def wait(self, condition, what):
        end = time.monotonic() + PATIENCE
        while not condition(seen := self.seen()):
            assert time.monotonic() < end, (what, seen)
            time.sleep(0.05)
        return seen

    def size(self, width, height):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def scheme(self, name):
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": name}]})

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
    page.driver.get("about:blank")
    page.requests()
    page.size(320, 700)
    page.scheme("light")
    page.lost = False
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
            return follower

        yield start


def test_each_recording_ends_as_it_did(page, replay):
    heights = set()
    for name, (title, failed) in ENDS.items():
        replay(RECORDINGS / f"{name}.jsonl")
        seen = page.wait(lambda s, title=title: s["title"] == title, name)
        lines = subprocess.run([FOLLOW, "--json", "--speed=0", "--replay",
                                RECORDINGS / f"{name}.jsonl"], capture_output=True, check=False)
        last = json.loads(lines.stdout.splitlines()[-1])
        assert (seen["percent"], seen["sentence"]) == (f"{last['overall']} %", last["sentence"])
        assert (seen["percent"] == "100 %") == (failed is None), name
        assert seen["state"] == ("failed" if failed else "done"), name
        assert seen["advice"] != "" and not seen["wide"], name
        marks = dict(zip(["download", "write", "verify", "done"], seen["marks"]))
        assert [step for step, mark in marks.items() if mark == "failed"] == ([failed] if failed else [])
        assert (marks["done"] == "over") == (failed is None)
        heights.add(seen["height"])
    assert {path.stem for path in RECORDINGS.glob("*.jsonl")} == set(ENDS)
    assert len(heights) == 1  # the longest text has its room


def test_a_whole_upgrade_moves_forward_and_nothing_jumps(page, replay):
    page.size(900, 700)
    replay(RECORDINGS / "http.jsonl", speed=1.5)
    seen, picture = [], os.environ.get("FOLLOW_PICTURE")
    while not seen or seen[-1]["title"] != "Done":
        seen.append(page.seen())
        if picture and seen[-1]["title"] == "Writing" and seen[-1]["value"] > 40:
            page.size(620, 550)
            time.sleep(0.7)
            page.driver.save_screenshot(picture)
            page.size(900, 700)
            picture = None
        assert len(seen) < 1000
        time.sleep(0.05)
    titles = list(dict.fromkeys(s["title"] for s in seen))
    assert {"Downloading", "Writing", "Finishing", "Done"} <= set(titles)
    assert titles[-1] == "Done"
    values = [s["value"] for s in seen]
    assert values == sorted(values) and len(set(values)) > 4
    assert all(s["value"] == 100 for s in seen if s["title"] == "Done")
    assert len({json.dumps(s["boxes"]) for s in seen}) == 1
    assert page.run("return document.querySelectorAll('[role=status], [aria-live]').length") == 2
    assert page.run("return document.querySelectorAll('a, button, input, [tabindex]').length") == 0


@contextlib.contextmanager
def web_server(folder, port):
    """The device's own web server, of plain files."""

    class Handler(http.server.SimpleHTTPRequestHandler):
        def __init__(self, *arguments):
            super().__init__(*arguments, directory=folder)

        def log_message(self, *_):
            pass

    server = http.server.ThreadingHTTPServer(("127.0.0.1", port), Handler)
    thread = threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.05})
    thread.start()
    yield server.server_port
    server.shutdown()
    thread.join()
    server.server_close()


def test_the_network_is_lost_and_found(page, tmp_path):
    """As on a device: its web server goes with the network, the state file tells the rest."""
    page.lost = True
    shutil.copy(PAGE, tmp_path)
    sender = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    with subprocess.Popen([FOLLOW, "--quiet", "--socket", tmp_path / "socket",
                           "--state", tmp_path / "state.json"]) as follower:
        while not (tmp_path / "socket").exists():
            time.sleep(0.01)

        def say(text):
            sender.sendto(text.encode(), str(tmp_path / "socket"))

        with web_server(tmp_path, 0) as port:
            page.driver.get(f"http://127.0.0.1:{port}/follow.html")
            page.wait(lambda s: s["title"] == "Waiting", "no upgrade yet")
            say("UPGRD_STAGE=DOWNLOADING")
            say("UPGRD_PERCENTAGE=100")
            page.wait(lambda s: s["title"] == "Checking", "downloaded")
        say("UPGRD_STAGE=WRITING")
        away = page.wait(lambda s: s["state"] == "away", "no answer")
        assert "stopped its network while it writes" in away["sentence"]
        assert "Do not switch the device off" in away["sentence"]
        later = page.wait(lambda s: s["taken"] != away["taken"], "counts on")
        assert later["quiet"].startswith("No answer for 0:0")
        say("UPGRD_STAGE=VERIFYING")
        say("UPGRD_STAGE=DONE")
        assert follower.wait(5) == 0
        with web_server(tmp_path, port):
            page.wait(lambda s: s["state"] == "done" and s["percent"] == "100 %", "found")


def test_a_late_page_learns_how_long_nothing_was_heard(page, tmp_path):
    """The follower is gone; the state it left is of long ago, by the device's own clock."""
    recording = tmp_path / "cut.jsonl"
    recording.write_text('{"format":"upgrade datagrams","version":1}\n'
                         '{"at":0,"text":"UPGRD_STAGE=WRITING"}\nx')
    subprocess.run([FOLLOW, "-q", "--replay", recording, "--state", tmp_path / "state.json"],
                   check=False, stderr=subprocess.DEVNULL)
    shutil.copy(PAGE, tmp_path)
    state = json.loads((tmp_path / "state.json").read_text())
    state["time"] = time.time() - 125
    (tmp_path / "state.json").write_text(json.dumps(state))
    with web_server(tmp_path, 0) as port:
        page.driver.get(f"http://127.0.0.1:{port}/follow.html")
        seen = page.wait(lambda s: s["quiet"] != "", "an old state")
        assert seen["quiet"].startswith("No word for 2:0")
        assert "The flash may refuse a block" in seen["notice"]


def test_text_is_never_markup(page, replay, tmp_path):
    evil = "<img src=x onerror=alert(1)><b>\x1b[2J</script>"
    recording = tmp_path / "evil.jsonl"
    recording.write_text('{"format":"upgrade datagrams","version":1}\n'
                         + json.dumps({"at": 0, "text": "UPGRD_ERROR=" + evil}) + "\n")
    replay(recording)
    seen = page.wait(lambda s: s["state"] == "failed", "an unknown error")
    assert seen["title"] == "Upgrade failed: " + evil
    assert page.run("return document.querySelectorAll('img, b').length") == 0
    assert not seen["wide"]


def test_dark_and_light_can_be_read(page, replay):
    """WCAG 2.1's contrast of 4.5 for every text."""
    grounds = set()
    for name in ("reset", "http", "refused-package"):
        replay(RECORDINGS / f"{name}.jsonl")
        page.wait(lambda s: s["state"] in ("done", "failed"), name)
        for scheme in ("light", "dark"):
            page.scheme(scheme)
            worst, ground = page.run("""
                const parts = (color) => color.match(/[\\d.]+/g).slice(0, 3).map(Number);
                const light = (color) => parts(color).map((c) => c / 255)
                    .map((c) => c <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)
                    .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
                const ground = getComputedStyle(document.querySelector("main")).backgroundColor;
                const texts = [...document.querySelectorAll("main *")].filter((e) =>
                    e.children.length === 0 && e.textContent.trim() !== "" && e.offsetWidth > 0);
                return [Math.min(...texts.map((e) => {
                    const [a, b] = [light(getComputedStyle(e).color), light(ground)];
                    return (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
                })), ground];""")
            assert worst >= 4.5, (name, scheme, worst)
            grounds.add(ground)
    assert len(grounds) == 2


def test_the_server_has_two_paths_and_strict_headers(replay, page):
    replay(RECORDINGS / "http.jsonl")
    url = page.driver.current_url.rstrip("/")
    port = int(url.rsplit(":", 1)[1])

    def ask(request):
        with socket.create_connection(("127.0.0.1", port), timeout=PATIENCE) as peer:
            peer.sendall(request)
            peer.shutdown(socket.SHUT_WR)
            return b"".join(iter(lambda: peer.recv(65536), b"")).decode()

    for path, kind in (("/", "text/html; charset=utf-8"), ("/follow.html", "text/html; charset=utf-8"),
                       ("/state.json", "application/json")):
        head, body = ask(f"GET {path} HTTP/1.0\r\n\r\n".encode()).split("\r\n\r\n", 1)
        lines = head.split("\r\n")
        assert " 200 " in lines[0] + " "
        assert f"Content-Type: {kind}" in lines
        assert "X-Content-Type-Options: nosniff" in lines
        assert "Cache-Control: no-store" in lines
        policy = next(line for line in lines if line.startswith("Content-Security-Policy: "))
        assert "default-src 'none'" in policy and "unsafe" not in policy
        assert "Server:" not in head
    assert body.startswith('{"format":1,')
    assert (BUILD / "tools/follow/follow.html").read_bytes().decode() in ask(b"GET / HTTP/1.0\r\n\r\n")
    for request in (b"GET /../etc/passwd HTTP/1.0\r\n\r\n", b"GET /state.json/ HTTP/1.0\r\n\r\n",
                    b"GET /follow_html HTTP/1.0\r\n\r\n", b"POST / HTTP/1.0\r\nContent-Length: 0\r\n\r\n",
                    b"GET /" + b"x" * 9000 + b" HTTP/1.0\r\n\r\n", b"\x00\xff\r\n\r\n", b""):
        assert " 200 " not in ask(request).split("\r\n")[0] + " ", request
    page.wait(lambda s: s["title"] == "Done", "still there")
