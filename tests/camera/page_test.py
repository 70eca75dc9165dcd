"""The simulated camera's page in a headless browser."""
import os
import tempfile

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.select import Select

from simulator.testing import eventually


class Browser(webdriver.Chrome):
    """What a person does on the page, and sees there."""

    def __init__(self, directory):
        options = webdriver.ChromeOptions()
        for option in ("headless", "no-sandbox", "remote-debugging-pipe", "disable-gpu",
                       "disable-dev-shm-usage", "hide-scrollbars", "window-size=1280,1500"):
            options.add_argument("--" + option)
        # The directory is where the browser leaves files behind.
        environment = os.environ | {"HOME": directory, "TMPDIR": directory}
        super().__init__(service=Service("/usr/bin/chromedriver", env=environment), options=options)

    def element(self, name):
        return self.find_element(By.ID, name)

    def sees(self, element, words):
        eventually(lambda: words in self.element(element).text,
                   f"'{words}' in {element}: {self.element(element).text!r}")

    def sign_in(self, user, password):
        for name, text in (("user", user), ("password", password)):
            self.element(name).clear()
            self.element(name).send_keys(text)
        self.element("sign-in").submit()

    def send(self, url, method, body="", until=" ms"):
        """Chooses a resource of the list, sends, and waits for the words about the answer."""
        eventually(lambda: self.element("resource").is_displayed() and
                   self.execute_script("return resources.length"), "the list of resources")
        index = self.execute_script("return resources.findIndex((one) => one.url === arguments[0])", url)
        Select(self.element("resource")).select_by_value(str(index))
        Select(self.element("method")).select_by_visible_text(method)
        # Keys cannot type every character.
        self.execute_script("document.getElementById('body').value = arguments[0]", body)
        self.element("request").submit()
        self.sees("verdict", until)


@pytest.fixture
def browser():
    with tempfile.TemporaryDirectory() as directory:  # short, for a socket in it
        chromium = Browser(directory)
        yield chromium
        chromium.quit()


def test_a_change_that_the_account_may_not_make_is_refused_and_the_slider_goes_back(browser, camera):
    browser.get(camera.url)
    browser.sign_in("admin", "wrong")
    browser.sees("sign-in-note", "User or password is wrong.")
    browser.sign_in("viewer", "viewer")
    browser.sees("streams", "1920×1080")
    slider = browser.find_element(By.NAME, "brightness")
    slider.send_keys(Keys.END)
    browser.sees("levels-note", "Not changed: 200 OK · status 4 Invalid Operation")
    eventually(lambda: slider.get_property("value") == "60", "the slider back at the 60 of the factory")
    browser.element("sensor").click()
    browser.sees("sensor-note", "Only an administrator may do this.")
    browser.element("sign-out").click()
    browser.sign_in("admin", "admin")
    browser.sees("user-name", "admin")


def test_a_change_is_seen_in_the_picture_and_in_the_log(browser, camera):
    browser.get(camera.url)
    browser.sign_in("admin", "admin")
    browser.find_element(By.NAME, "brightness").send_keys(Keys.END)
    browser.sees("levels-note", "Set: 200 OK · status 1 OK")
    scene = browser.element("scene")  # the brightness of its filter is 0.4 + 0.012 * 100
    eventually(lambda: "brightness(1.6)" in scene.value_of_css_property("filter"), "the brighter picture")
    browser.sees("log", "VideoSource[0].Brightness: 60 -> 100")
    browser.sees("log", "command 1: picture settings changed, video source 0")


def test_neither_passwords_nor_commands_of_a_terminal_are_shown(browser, camera):
    browser.get(camera.url)
    browser.sign_in("admin", "admin")
    browser.send("/PSIA/Custom/Event", "GET")  # its document goes to standard output
    browser.sees("verdict", "500 Internal Server Error")
    browser.sees("why", "standard output")
    browser.sees("answer", "<EventNotification version")
    browser.sees("answer", "      <password>***</password>")
    browser.send("/PSIA/System/deviceInfo", "PUT",
                 "<DeviceInfo><deviceName>gate\u009b31m&amp;&lt;b></deviceName></DeviceInfo>")
    browser.sees("effects", "Network.DDNSHostname: camera-1 -> gate?31m&<b>")
    browser.sees("name", "gate?31m&<b>")
    assert "gate?31m" in camera.shown() and "\u009b" not in camera.shown()


def test_a_restart_and_the_end_of_the_camera_are_seen(browser, start):
    camera = start("--boot", "5")  # seconds, long enough for the page to be seen without a camera
    browser.get(camera.url)
    browser.sign_in("admin", "admin")
    browser.send("/PSIA/System/factoryReset?MODE=FULL", "PUT")
    browser.sees("no-picture", "The camera restarts")
    browser.sees("state", "restarting")
    browser.send("/PSIA/System/status", "GET", until="503 Service Unavailable")
    browser.sees("effects", "REFUSEDThe camera restarts.")  # a label and the words
    eventually(lambda: browser.element("no-picture").text == "", "the picture after the restart")

    browser.refresh()
    browser.sees("user-name", "admin")  # still signed in
    browser.send("/PSIA/System/status", "GET")
    camera.process.terminate()
    browser.sees("no-picture", "No answer.")
    browser.send("/PSIA/System/status", "GET", until="The camera does not answer.")
    assert not browser.element("answer").text, "the answer before"
