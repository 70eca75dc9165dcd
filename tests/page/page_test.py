"""The simulated camera's page in a headless browser."""
import json
import os
import socket
import subprocess
import tempfile
import urllib.error
import urllib.request

import pytest

from simulator.processes import die_with
from simulator.testing import RunningCamera, eventually


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Browser:
    """WebDriver's few requests (W3C WebDriver) to chromedriver."""

    def __init__(self, directory):
        self.base = f"http://127.0.0.1:{free_port()}"
        # In a process namespace, with which all that the browser starts ends.
        alone = ["unshare", "--pid", "--fork", "--kill-child", "--mount-proc"]
        if os.geteuid() != 0:
            alone.append("--map-root-user")
        self.driver = subprocess.Popen(
            alone + ["chromedriver", "--port=" + self.base.rsplit(":", 1)[1]], preexec_fn=lambda: die_with(os.getppid()),
            env=os.environ | {"HOME": directory, "TMPDIR": directory},  # where the browser leaves files behind
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        # The pipe needs no name localhost.
        flags = ["headless", "no-sandbox", "remote-debugging-pipe", "disable-gpu", "disable-quic", "no-first-run",
                 "disable-sync", "disable-background-networking", "disable-component-update",
                 "disable-dev-shm-usage", "hide-scrollbars", "window-size=1280,1500", "user-data-dir=" + directory + "/profile"]
        options = {"args": ["--" + flag for flag in flags]}
        wanted = {"capabilities": {"alwaysMatch": {"goog:chromeOptions": options}}}
        eventually(self.ready, "chromedriver")
        self.base += "/session/" + self.ask("POST", "/session", wanted)["sessionId"]

    def ready(self):
        try:
            return self.ask("GET", "/status")["ready"]
        except OSError:
            return False

    def ask(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.base + path, data, {"Content-Type": "application/json"}, method=method)
        try:
            with urllib.request.urlopen(request, timeout=60) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            pytest.fail(f"{method} {path}: {error.read().decode()}")

    def run(self, script, *arguments):
        return self.ask("POST", "/execute/sync", {"script": script, "args": arguments})

    def text(self, element):
        return self.run("const e = document.getElementById(arguments[0]); return e.checkVisibility() ? e.innerText : ''",
                        element)

    def sees(self, element, words):
        eventually(lambda: words in self.text(element), f"'{words}' in {element}: {self.text(element)!r}")

    def sign_in(self, user, password):
        self.run("document.getElementById('user').value = arguments[0];"
                 "document.getElementById('password').value = arguments[1];"
                 "document.getElementById('sign-in').requestSubmit()", user, password)

    def send(self, title, method, body=None, until=" ms"):
        """Chooses a resource of the list, sends, and waits for the words about the answer."""
        eventually(lambda: self.run("return resources.length"), "the list of resources")
        self.run("""const [title, method, body] = arguments, set = (id, value) => {
            const field = document.getElementById(id); field.value = value; field.dispatchEvent(new Event('change')); };
          const url = (found) => found.url === title;
          set('resource', resources.findIndex(url)); set('method', method);
          if (body !== null) document.getElementById('body').value = body;
          document.getElementById('request').requestSubmit()""", title, method, body)
        self.sees("verdict", until)

    def close(self):
        self.ask("DELETE", "")
        self.driver.kill()
        self.driver.wait()


@pytest.fixture
def camera():
    running = RunningCamera("--boot", "5")  # long enough for the page to be seen without a camera
    yield running
    running.stop()


@pytest.fixture
def browser():
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as directory:  # short, for a socket in it
        chromium = Browser(directory)
        yield chromium
        chromium.close()


def test_the_page(browser, camera):
    browser.ask("POST", "/url", {"url": camera.url})
    browser.sign_in("admin", "wrong")
    browser.sees("sign-in-note", "User or password is wrong.")
    browser.sign_in("viewer", "viewer")
    browser.sees("streams", "1920×1080")

    # A change that this account may not make: it is refused, and the slider goes back.
    move = """const slider = document.getElementById('levels').elements.brightness; slider.value = arguments[0];
      for (const kind of ['input', 'change']) slider.dispatchEvent(new Event(kind, {bubbles: true}))"""
    browser.run(move, 90)
    browser.sees("levels-note", "Not changed: 200 OK · status 4 Invalid Operation")
    level = "return document.getElementById('levels').elements.brightness.value"
    eventually(lambda: browser.run(level) == "60", "the slider back at 60")

    browser.run("document.getElementById('sign-out').click()")
    browser.sign_in("admin", "admin")
    browser.sees("user-name", "admin")
    browser.run(move, 85)
    browser.sees("levels-note", "Set: 200 OK · status 1 OK")
    shown = "return document.getElementById('scene').style.filter"
    eventually(lambda: "brightness(1.42)" in browser.run(shown), "the brighter picture")
    browser.sees("log", "VideoSource[0].Brightness: 60 -> 85")
    browser.sees("log", "command 1: picture settings changed, video source 0")

    # A document that goes to standard output, its passwords not shown; a name that would be a terminal's command.
    browser.send("/PSIA/Custom/Event", "GET")
    browser.sees("verdict", "500 Internal Server Error")
    browser.sees("why", "standard output")
    browser.sees("answer", "<EventNotification version")
    browser.sees("answer", "      <password>***</password>")
    browser.send("/PSIA/System/deviceInfo", "PUT",
                 "<DeviceInfo><deviceName>gate\u009b31m&amp;&lt;b></deviceName></DeviceInfo>")
    browser.sees("effects", "Network.DDNSHostname: camera-1 -> gate?31m&<b>")
    browser.sees("name", "gate?31m&<b>")
    assert "gate?31m" in camera.shown() and "\u009b" not in camera.shown()

    browser.send("/PSIA/System/factoryReset?MODE=FULL", "PUT")
    browser.sees("no-picture", "The camera restarts")
    browser.sees("state", "restarting")
    browser.send("/PSIA/System/status", "GET", until="503 Service Unavailable")
    browser.sees("effects", "REFUSEDThe camera restarts.")  # a label and the words
    eventually(lambda: browser.text("no-picture") == "", "the picture after the restart")

    browser.ask("POST", "/refresh", {})
    browser.sees("user-name", "admin")  # still signed in
    browser.send("/PSIA/System/status", "GET")
    camera.process.terminate()
    browser.sees("no-picture", "No answer.")
    browser.send("/PSIA/System/status", "GET", until="The camera does not answer.")
    assert not browser.text("answer"), "the answer before"
    assert browser.run("return document.getElementById('verdict').className") == "bad"


# The words of the table of streams that are broken, and the names of resources that are cut.
CUT = """const cut = [], range = document.createRange(), pen = document.createElement('canvas').getContext('2d');
  for (const cell of document.querySelectorAll('#streams th, #streams td'))
    for (const word of cell.textContent.matchAll(/\\S+/g)) {
      range.setStart(cell.firstChild, word.index); range.setEnd(cell.firstChild, word.index + word[0].length);
      if (range.getClientRects().length > 1) cut.push(word[0]);
    }
  const list = document.getElementById('resource'), style = getComputedStyle(list);
  pen.font = style.font;
  const room = list.clientWidth - parseFloat(style.paddingLeft) - parseFloat(style.paddingRight) - 20;  // the arrow
  return [...cut, ...[...list.options].map((one) => one.text).filter((name) => pen.measureText(name).width > room)]"""


def test_no_word_of_the_page_is_cut_at_any_width(browser, camera):
    browser.ask("POST", "/url", {"url": camera.url})
    browser.sign_in("admin", "admin")
    browser.sees("streams", "1920×1080")
    for width in (420, 700, 1010, 1280, 1600):
        browser.ask("POST", "/window/rect", {"width": width, "height": 1500})
        assert browser.run(CUT) == [], f"at a width of {width}"
