"""A browser without a window, in which the tests of the page look at what a server of tables shows."""

import os
import time
import unittest

try:
    from selenium import webdriver
    from selenium.common.exceptions import JavascriptException, StaleElementReferenceException
    from selenium.webdriver.chrome.options import Options
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.common.actions.wheel_input import ScrollOrigin
except ImportError as missing:
    raise unittest.SkipTest(f"the page cannot be tested: {missing}; install python3-selenium, chromium and chromium-driver") from missing

LARGE = (1280, 800)
SMALL = (390, 844)

# What axe-core finds wrong: rule, first element, what would mend it.
_AXE = """
const done = arguments[arguments.length - 1];
axe.run(document, {resultTypes: ["violations"]}).then(found => done(found.violations.map(
  one => `${one.id}: ${one.nodes[0].html.slice(0, 300)}: ${one.nodes[0].failureSummary}`)), error => done([String(error)]));
"""


class Browser:
    """Chromium with a profile of its own. What its console tells as an error fails the test at its end, unless it was
    expected."""

    def __init__(self, test, size=LARGE, theme="light", zone="UTC"):
        self._test = test
        options = Options()
        options.binary_location = os.environ.get("TABULO_CHROMIUM") or "/usr/bin/chromium"
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--force-device-scale-factor=1"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        service = Service(os.environ.get("TABULO_CHROMEDRIVER") or "/usr/bin/chromedriver")
        self.driver = webdriver.Chrome(service=service, options=options)
        test.addCleanup(self.driver.quit)
        self.errors = []
        self.resize(size)
        self.theme(theme)
        self.driver.execute_cdp_cmd("Emulation.setTimezoneOverride", {"timezoneId": zone})
        self.driver.set_script_timeout(60)

    def resize(self, size):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                    {"width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": size[0] < 500})

    def theme(self, theme):
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                    {"features": [{"name": "prefers-color-scheme", "value": theme}]})

    def open(self, server):
        """Opens the address that a server has printed, as its user does."""
        self.base = f"http://127.0.0.1:{server.port}/"
        self.driver.get(server.page)
        self.wait("#connection.connected", "Connected")

    def show(self, address, ready=None):
        """Goes to an address within the page; ready is a selector that must be there."""
        self.run("location.hash = arguments[0]", address)
        if ready:
            self.wait(ready)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def text(self, selector):
        """The text of the first element of a selector as it is stored, also where it is clipped; None without one."""
        return self.run("return document.querySelector(arguments[0])?.textContent ?? null", selector)

    def texts(self, selector):
        return self.run("return [...document.querySelectorAll(arguments[0])].map(one => one.textContent)", selector)

    def until(self, condition, what, seconds=20):
        """Waits until a function gives something true, and gives that."""
        end = time.monotonic() + seconds
        while True:
            try:
                found = condition()
            except (StaleElementReferenceException, JavascriptException):
                found = None
            if found:
                return found
            if time.monotonic() > end:
                raise AssertionError(f"after {seconds} s still not so: {what() if callable(what) else what}; the page shows:\n"
                                     f"{self.driver.current_url}\n{self.text('main')[:2000]}")
            time.sleep(0.05)

    def wait(self, selector, text=None):
        """Waits for an element, with a text in it when one is given."""
        words = f"an element {selector}" + (f" with '{text}'" if text else "")
        return self.until(lambda: any(text is None or text in one for one in self.texts(selector)), words)

    def press(self, *keys):
        """Keys, where the focus is."""
        webdriver.ActionChains(self.driver).send_keys(*keys).perform()

    def drag(self, element, begin, end):
        """Drags within an element, from and to so many pixels beside its middle."""
        webdriver.ActionChains(self.driver).move_to_element_with_offset(element, begin, 0).click_and_hold().move_by_offset(
            (end - begin) // 2, 5).move_by_offset((end - begin) // 2, 0).release().perform()

    def wheel(self, element, pixels):
        origin = ScrollOrigin.from_element(element)
        webdriver.ActionChains(self.driver).scroll_from_origin(origin, 0, pixels).perform()

    def copied(self, button):
        """What a button with this text copies."""
        self.driver.execute_cdp_cmd("Browser.grantPermissions", {"permissions": ["clipboardReadWrite", "clipboardSanitizedWrite"]})
        # Of two with the same text that of the message that is open, which stands behind the other.
        found = [one for one in self.all("main button") if one.text == button and one.is_displayed()][-1]
        found.click()
        self.until(lambda: found.text == "Copied", f"the button {button} has copied")
        return self.driver.execute_async_script("navigator.clipboard.readText().then(arguments[0], error => arguments[0](String(error)))")

    def address(self):
        return self.run("return location.hash")

    def widths(self):
        """How wide the page is, and how wide the window."""
        return self.run("return [document.documentElement.scrollWidth, innerWidth]")

    def violations(self):
        """What axe-core finds; it comes in over the driver, beside the page's rules for scripts."""
        if not self.run("return typeof window.axe === 'object'"):
            with open(os.environ["TABULO_AXE"], encoding="utf-8") as source:
                self.run(source.read())
        return self.driver.execute_async_script(_AXE)

    def console_errors(self):
        """Errors that the console has told since this was asked last."""
        return [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] == "SEVERE"]


__all__ = ["Browser", "Keys", "LARGE", "SMALL"]
