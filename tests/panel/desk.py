"""A gateway with its page, and a browser that looks at it: for tests of the page and for pictures of it."""
import os
import re
import socket
import subprocess
import tempfile
import threading
import time
import urllib.error
import urllib.request

from selenium import webdriver
from selenium.common.exceptions import ElementNotInteractableException, StaleElementReferenceException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PATIENCE = int(os.environ.get("GATEWAY_TIMEOUT", "60"))  # seconds for what is sure to come
# Its own background traffic would only fail here.
QUIET = "headless=new disable-gpu disable-quic no-first-run disable-background-networking disable-component-update disable-sync".split()


class Wrong(Exception):
    """What was seen, and what it should have been."""


def until(true, what):
    """Waits for what is sure to come; its value. What is drawn anew while it is looked at is looked for again."""
    limit = time.monotonic() + PATIENCE
    while True:
        try:
            if value := true():
                return value
        except (ElementNotInteractableException, StaleElementReferenceException):
            pass
        if time.monotonic() > limit:
            raise Wrong(f"in {PATIENCE} s this was never seen: {what}")
        time.sleep(0.05)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Desk:
    """The gateway, with a shell inside that runs what it is told."""

    def __init__(self, build):
        self.port = free_port()
        self.said = []
        self.process = subprocess.Popen(
            [f"{ROOT}/devkit/sandbox", "--build", build, "--panel", str(self.port), "--", "bash"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, start_new_session=True,
        )
        threading.Thread(target=self._listen, daemon=True).start()
        self.address = until(self._address, "the address of the page")
        self.token = self.address.split("#")[1]

    def _listen(self):
        for line in self.process.stderr:
            self.said.append(line.rstrip())
            del self.said[:-200]

    def _address(self):
        if self.process.poll() is not None:
            raise Wrong("the gateway ended: " + " / ".join(self.said))
        return next((found[0] for line in self.said if (found := re.search(r"http://127\.0\.0\.1:\d+/#\w+", line))), None)

    def run(self, command):
        """What the command prints inside."""
        self.process.stdin.write(command + "\necho; echo end-of-answer\n")
        self.process.stdin.flush()
        lines = []
        for line in self.process.stdout:
            if line == "end-of-answer\n":
                return "".join(lines)[:-1]
            lines.append(line)
        raise Wrong("the shell inside ended: " + " / ".join(self.said))

    def ask(self, path, body=b"{}", method="POST", **headers):
        """Status and body of a request as any program of this machine can make it."""
        names = {"Content-Type": "application/json", "Authorization": f"Bearer {self.token}"}
        names.update({name.replace("_", "-"): value for name, value in headers.items()})
        request = urllib.request.Request(
            f"http://127.0.0.1:{self.port}{path}", data=body if method == "POST" else None,
            headers={name: value for name, value in names.items() if value is not None}, method=method,
        )
        try:
            with urllib.request.urlopen(request, timeout=PATIENCE) as answer:
                return answer.status, answer.read(), answer.headers
        except urllib.error.HTTPError as error:
            return error.code, error.read(), error.headers

    def end(self):
        self.process.stdin.close()
        return self.process.wait(PATIENCE)


class Browser:
    """Chromium, headless."""

    def __init__(self, width=1280, height=860, dark=False):
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        self.folder = tempfile.TemporaryDirectory(prefix="panel-browser.")
        for word in [*QUIET, f"user-data-dir={self.folder.name}", *(["no-sandbox"] if os.getuid() == 0 else [])]:
            options.add_argument(f"--{word}")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.driver.set_page_load_timeout(PATIENCE)
        self.driver.set_script_timeout(PATIENCE)
        self.size(width, height)
        self.scheme(dark)

    def size(self, width, height):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def scheme(self, dark):
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}, {"name": "prefers-reduced-motion", "value": "reduce"}]})

    def open(self, address):
        self.driver.get(address)
        self.sees("#link.open")

    def sees(self, selector, text="", within=None):
        """The first element of the selector that is shown and has the text."""
        def look():
            shown = (each for each in (within or self.driver).find_elements(By.CSS_SELECTOR, selector) if each.is_displayed())
            return next((each for each in shown if text in each.text), None)
        return until(look, f"{selector} with “{text}”")

    def click(self, selector, text=""):
        until(lambda: self.sees(selector, text).click() is None, f"{selector} with “{text}” to click")

    def press(self, box, text, button):
        """Clicks the button of the first box that has it and the text: all may be drawn anew meanwhile."""
        def click():
            boxes = [each for each in self.driver.find_elements(By.CSS_SELECTOR, box) if text in each.text]
            found = (each for where in boxes for each in where.find_elements(By.CSS_SELECTOR, "button") if button in each.text)
            return any(each.click() is None for each in found)
        until(click, f"{box} with “{text}” and a button “{button}”")

    def view(self, name):
        self.click(f"nav a[href='#/{name}']")
        return self.sees(f".view.{name}")

    def js(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def errors(self):
        """What the console complained of since the last look."""
        return [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] in ("SEVERE", "WARNING")]

    def picture(self, path):
        self.driver.save_screenshot(path)

    def end(self):
        self.driver.quit()
        self.folder.cleanup()
