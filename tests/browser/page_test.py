"""The inspector page in a real Chromium, in front of the example host under `kivo-dev run`."""

import contextlib
import http.client
import json
import os
import pathlib
import random
import socket
import ssl
import subprocess
import tempfile
import unittest
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

PATIENCE = 20
PICTURES = pathlib.Path(os.environ["KIVO_SCREENSHOTS"])
DROP_A_PICTURE = """
const data = new DataTransfer();
data.items.add(new File(["a picture"], "a.png", { type: "image/png" }));
const drop = new DragEvent("drop", { dataTransfer: data, bubbles: true, cancelable: true });
document.querySelector(".drop").dispatchEvent(drop);
"""
HOSTILE = "<img src=x onerror=hit=1><script>hit=1</script>"


def free_port():
    """Below those that the kernel hands out, so that no other program gets it in the meantime."""
    while True:
        port = random.randrange(10_000, 32_000)
        with contextlib.suppress(OSError), socket.create_server(("127.0.0.1", port)):
            return port


class Backend:
    """kivo-dev with the example host, which reads one command a line."""

    def __init__(self, home, port, *options):
        self.port = port
        command = [os.environ["KIVO_DEV"], "run", "--admin-port", str(port), *options]
        self.process = subprocess.Popen(
            [*command, "--", os.environ["KIVO_HOST"]],
            stdin=subprocess.PIPE,
            stdout=subprocess.DEVNULL,
            env={**os.environ, "HOME": home, "XDG_STATE_HOME": home, "XDG_DATA_HOME": home},
        )

    def tell(self, *lines):
        self.process.stdin.write("".join(f"{line}\n" for line in lines).encode())
        self.process.stdin.flush()

    def state(self):
        with urllib.request.urlopen(f"http://localhost:{self.port}/state") as reply:
            return json.load(reply)

    def send(self, method, path, headers, body):
        """A request that no SDK sends."""
        port = int(self.state()["baseUrl"].split(":")[2].rstrip("/"))
        context = ssl._create_unverified_context()
        connection = http.client.HTTPSConnection("localhost", port, context=context)
        connection._validate_path = lambda path: None
        connection.request(method, path, body, headers)
        connection.getresponse().read()
        connection.close()

    def stop(self):
        self.process.stdin.close()
        self.process.wait(PATIENCE)


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for argument in ("--headless=new", "--disable-dev-shm-usage", "--hide-scrollbars"):
            options.add_argument(argument)
        if os.geteuid() == 0:
            options.add_argument("--no-sandbox")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        cls.addClassCleanup(cls.browser.quit)
        behaviour = {"behavior": "allow", "downloadPath": cls.folder.name}
        cls.browser.execute_cdp_cmd("Browser.setDownloadBehavior", behaviour)
        PICTURES.mkdir(parents=True, exist_ok=True)

    def start(self, *options, port=0):
        home = tempfile.mkdtemp(dir=self.folder.name)
        self.backend = Backend(home, port or free_port(), *options)
        self.addCleanup(self.backend.stop)
        self.wait(lambda: socket.create_connection(("localhost", self.backend.port)).close() or 1)

    def open(self, width=1280, height=800, scheme="light"):
        size = {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False}
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", size)
        media = {"features": [{"name": "prefers-color-scheme", "value": scheme}]}
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", media)
        self.browser.get(f"http://localhost:{self.backend.port}/")

    def wait(self, condition):
        ignored = [OSError, LookupError, ValueError]
        return WebDriverWait(self, PATIENCE, 0.05, ignored).until(lambda _: condition())

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def row(self, *texts):
        """The row that shows these texts."""
        script = "return [...document.querySelectorAll('.row:not([hidden])')]"
        has = "(row => arguments[0].every(text => row.innerText.includes(text)))"
        return self.wait(lambda: self.browser.execute_script(f"{script}.find{has}", texts))

    def wait_for(self, selector, text):
        self.wait(lambda: text in self.find(selector).get_property("textContent"))

    def set_user(self):
        self.backend.tell("initialise an-api-key")
        self.row("sdk/authenticate", "200")
        self.backend.tell("user 40 711 ana@example.com Ana")
        self.row("user/authenticate", "200")

    def test_a_refused_request_its_renewal_and_its_resend_are_one_story(self):
        self.start("--fault", "user/update-device-token:401:times=1")
        self.open()
        self.set_user()
        self.backend.tell(
            "device-token my-device-token", "message https://localhost:8443/img/a.png"
        )
        story = self.row("user/update-device-token", "401", "200", "token renewed, sent again")
        self.row("img/a.png")
        self.wait_for("#count-refreshes", "1")
        story.click()
        steps = [step.text.split()[0] for step in self.browser.find_elements(By.CLASS_NAME, "step")]
        self.assertEqual((steps[0], steps[-1]), ("refused", "sent"))
        self.wait_for(".sdk", "here1>>>401")
        for width, scheme in ((1280, "light"), (1280, "dark"), (2560, "dark")):
            self.open(width, 800, scheme)
            self.row("img/a.png")
            self.row("token renewed, sent again").click()
            self.browser.save_screenshot(str(PICTURES / f"story-{width}-{scheme}.png"))
        self.open(380, 760)
        self.row("token renewed, sent again")
        self.browser.save_screenshot(str(PICTURES / "list-380-light.png"))
        wide = "return document.documentElement.scrollWidth"
        self.assertEqual(self.browser.execute_script(wide), 380)

    def test_a_fault_of_the_form_hits(self):
        self.start()
        self.open()
        self.set_user()
        Select(self.find("#fault-endpoint")).select_by_visible_text("user/unset")
        Select(self.find("#fault-kind")).select_by_visible_text("status")
        self.find("#fault-times").send_keys("1")
        self.find("#fault-add").click()
        self.wait_for("#fault-list", "user/unset:status=503:times=10 hits, 1 left")
        self.backend.tell("unset")
        self.row("user/unset", "503", "fault status=503").click()
        self.wait_for("#fault-list", "1 hit, used up")
        self.wait_for(".sdk", 'success: false, message: "injected fault"')

    def press(self, *keys):
        ActionChains(self.browser).send_keys(*keys).perform()

    def test_keys_choose_search_and_go_back(self):
        self.start()
        self.open()
        self.set_user()
        self.press("jk")
        chosen = "#list:focus .row[aria-selected=true]"
        self.wait_for(chosen, "sdk/authenticate")
        self.wait_for("#detail", "an-a…")
        self.press("/Ana")
        self.wait(
            lambda: len(self.browser.find_elements(By.CSS_SELECTOR, ".row:not([hidden])")) == 1
        )
        self.row("user/authenticate")
        self.press(Keys.ESCAPE)
        self.row("sdk/authenticate")
        self.press("j")
        self.wait_for(chosen, "user/authenticate")
        self.press(Keys.ESCAPE)
        self.wait_for("#detail", "Choose a request")

    def test_a_dropped_picture_is_served_and_the_slider_delays(self):
        self.start()
        self.open()
        self.browser.execute_script(DROP_A_PICTURE)
        payload = self.wait(lambda: json.loads(self.find("#push pre").text))
        self.backend.tell("initialise an-api-key", f"message {payload['notification']['image']}")
        self.wait_for("#push-hits", "requested 1 time")
        self.assertEqual(self.find("#count-forwarded").text, "0")
        slider = self.find("#latency")
        self.wait(lambda: slider.send_keys(Keys.END) or self.backend.state()["latency"] == "3000ms")

    def test_it_goes_on_after_a_restart_of_the_backend(self):
        self.start()
        self.open()
        self.set_user()
        self.backend.stop()
        self.wait_for("#live", "no backend")
        self.start(port=self.backend.port)
        self.backend.tell("initialise another-key")
        self.wait_for("#live", "live")
        self.row("the backend was started anew")
        names = "[...document.querySelectorAll('.row:not([hidden]) .name')].map(e => e.innerText)"
        shown = ["sdk/authenticate", "user/authenticate", "the backend was started anew"]
        shown.append("sdk/authenticate")
        self.wait(lambda: self.browser.execute_script(f"return {names}") == shown)
        self.wait_for("#count-requests", "1")

    def test_what_a_client_sends_is_text(self):
        self.start()
        self.open()
        headers = {"Authorization": f"Bearer {HOSTILE}", "x-platform": HOSTILE}
        path = "/api/communication/user/unset"
        self.backend.send("PUT", path, headers, json.dumps({"sessionId": HOSTILE, HOSTILE: 1}))
        self.backend.send("GET", f"/{HOSTILE.replace(' ', '')}", {}, HOSTILE)
        self.row("/<img", "404").click()
        self.wait_for("#detail", HOSTILE)
        self.row("user/unset", "401", "broken").click()
        for selector in (".headers", ".body"):
            self.wait_for(selector, HOSTILE)
        self.wait_for(".header.broken", "is malformed")
        self.wait_for(".header.broken ~ .header.broken", "x-platform")
        made = "return [window.hit, document.querySelector('img, #detail script, main script')]"
        self.assertEqual(self.browser.execute_script(made), [None, None])

    def test_exports_are_read_back_without_secrets(self):
        self.start("--show-secrets")
        self.open()
        self.set_user()
        self.wait_for("#count-requests", "2")
        self.assertIn("an-api-key", self.find("#sessions").get_property("textContent"))
        self.find(".menu summary").click()
        self.find("#export-har").click()
        har = self.downloaded("kivo-dev.har", json.loads)
        self.assertEqual(har["log"]["version"], "1.2")
        sent = [entry["request"]["url"].split("/", 3)[3] for entry in har["log"]["entries"]]
        self.assertEqual(sent, [f"api/communication/{who}/authenticate" for who in ("sdk", "user")])
        self.assertNotIn("an-api-key", json.dumps(har))
        self.find(".menu summary").click()
        self.find("#export-secrets").click()
        self.find("#export-lines").click()
        lines = self.downloaded("kivo-dev.jsonl", lambda text: text.splitlines())
        self.assertEqual([json.loads(line)["status"] for line in lines], [200, 200])
        self.assertIn("an-api-key", lines[0])

    def downloaded(self, name, read):
        return self.wait(lambda: read((pathlib.Path(self.folder.name) / name).read_text()))

    def tearDown(self):
        """Nothing that the browser complains of, but for a backend that has gone."""
        log = [entry["message"] for entry in self.browser.get_log("browser")]
        gone = ("ERR_CONNECTION_REFUSED", "ERR_EMPTY_RESPONSE", "ERR_INCOMPLETE_CHUNKED_ENCODING")
        self.assertEqual([text for text in log if not any(each in text for each in gone)], [])


if __name__ == "__main__":
    unittest.main()
