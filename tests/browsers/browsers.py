"""Real browsers, headless, with a profile of their own that goes away: Chromium through chromedriver (W3C WebDriver), Firefox
through its Marionette protocol. Both have the same few methods."""

import base64
import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import urllib.request

START_SECONDS = 60
ENDING_SECONDS = 20
ANSWER_SECONDS = 300
# What a browser leaves in its profile that says where it runs.
OF_ONE_START = ("log", "Singleton*", ".parentlock", "lock", "MarionetteActivePort")


class BrowserError(Exception):
    """What a browser answers in the place of a result."""


def needed(program):
    path = shutil.which(program)
    if not path:
        raise BrowserError(f"there is no {program}; scripts/packages test installs it")
    return path


# Waits for the end of whoever started it, however that comes, and ends the browser with all its processes.
GUARD = 'read -r _; kill -KILL "-$1" 2>/dev/null; rm -rf -- "$2"'


class Browser:
    """A page in a window. Lengths are in CSS pixels."""

    arguments = ()  # further ones of the browser

    def __init__(self):
        self.profile = tempfile.mkdtemp(prefix="browser-")
        self.environment = {**os.environ, "HOME": self.profile, "TMPDIR": self.profile, "LANG": "C.UTF-8"}
        self.process = self.guard = self.log = None

    def __enter__(self):
        try:
            self.start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        with contextlib.suppress(OSError, BrowserError, ValueError):
            self.quit()
        if self.process:
            try:
                self.process.wait(ENDING_SECONDS)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.ended()
        shutil.rmtree(self.profile, ignore_errors=True)

    def launch(self, *command):
        self.log = open(os.path.join(self.profile, "log"), "w+", encoding="utf-8", errors="replace")
        self.process = subprocess.Popen(command, env=self.environment, stdin=subprocess.DEVNULL, stdout=self.log,
                                        stderr=self.log, start_new_session=True)
        self.guard = subprocess.Popen(["sh", "-c", GUARD, "guard", str(self.process.pid), self.profile],
                                      stdin=subprocess.PIPE, start_new_session=True)

    def ended(self):
        if self.guard:
            self.guard.kill()
            self.guard.wait()
            self.guard.stdin.close()
        if self.log:
            self.log.close()

    def crash(self):
        """As by a loss of power, but for what the system keeps: `start` goes on with what the profile holds."""
        os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()
        self.ended()

    def end(self):
        """As its user ends it: `start` goes on with what the profile holds."""
        self.quit()
        self.process.wait(ENDING_SECONDS)
        self.ended()

    def copy_profile(self, path):
        """Of a browser that does not run."""
        shutil.copytree(self.profile, path, symlinks=True, ignore=shutil.ignore_patterns(*OF_ONE_START))

    def restore_profile(self, path):
        """Replaces what the browser, which does not run, has by the copy."""
        shutil.rmtree(self.profile)
        shutil.copytree(path, self.profile, symlinks=True)

    def wait_for(self, condition):
        """What `condition` answers, once that is something."""
        end = time.monotonic() + START_SECONDS
        while time.monotonic() < end and self.process.poll() is None:
            result = condition()
            if result:
                return result
            time.sleep(0.05)
        self.log.seek(0)
        raise BrowserError(f"{type(self).__name__} does not start: {self.log.read()[-2000:]}")

    def screenshot(self, path):
        pathlib.Path(path).write_bytes(base64.b64decode(self.picture()))


class Chromium(Browser):
    def __init__(self):
        super().__init__()
        self.data = os.path.join(self.profile, "data")

    def start(self):
        self.launch(needed("chromedriver"), "--port=0")
        log = os.path.join(self.profile, "log")
        port = self.wait_for(lambda: re.search(r"successfully on port (\d+)", pathlib.Path(log).read_text(encoding="utf-8")))[1]
        self.session = f"http://127.0.0.1:{port}"
        arguments = ["--headless=new", "--disable-gpu", "--no-first-run", "--hide-scrollbars", "--force-device-scale-factor=1",
                     f"--user-data-dir={self.data}", *(["--no-sandbox"] if os.getuid() == 0 else []),
                     *self.arguments]
        options = {"binary": needed("chromium"), "args": arguments}
        wanted = {"browserName": "chrome", "goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"},
                  "timeouts": {"script": ANSWER_SECONDS * 1000}}
        answer = self.call("POST", "/session", {"capabilities": {"alwaysMatch": wanted}})
        self.session += "/session/" + answer["sessionId"]

    def quit(self):
        with contextlib.suppress(OSError, BrowserError):
            self.call("DELETE", "")
        self.process.terminate()

    def call(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.session + path, data, {"Content-Type": "application/json"}, method=method)
        # Nothing of the machine's proxies lies between this program and that one.
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        try:
            with opener.open(request, timeout=ANSWER_SECONDS) as response:
                return json.load(response)["value"]
        except urllib.error.HTTPError as error:
            raise BrowserError(json.load(error)["value"]["message"]) from None

    def command(self, name, **parameters):
        return self.call("POST", "/goog/cdp/execute", {"cmd": name, "params": parameters})

    def open(self, address):
        self.call("POST", "/url", {"url": address})

    def script(self, text, *arguments):
        """What the function body answers, a promise's value where it answers one."""
        return self.call("POST", "/execute/sync", {"script": text, "args": list(arguments)})

    def look(self, width, height, scheme):
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        self.command("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def press(self, *keys):
        """Types into what has the focus; keys by WebDriver's code points."""
        actions = [{"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]
        self.call("POST", "/actions", {"actions": [{"type": "key", "id": "keyboard", "actions": actions}]})

    def picture(self):
        return self.call("GET", "/screenshot")

    def messages(self):
        """What the console says since the last call, of warnings and worse."""
        return [each["message"] for each in self.call("POST", "/se/log", {"type": "browser"})]


# No process for what nobody asks for, and none in advance.
FEW_PROCESSES = {"dom.ipc.processPrelaunch.enabled": False, "dom.ipc.processCount": 1, "network.process.enabled": False,
                 "browser.newtab.preload": False, "browser.safebrowsing.malware.enabled": False,
                 "browser.safebrowsing.phishing.enabled": False, "extensions.getAddons.cache.enabled": False,
                 "extensions.update.enabled": False, "app.normandy.enabled": False, "browser.search.update": False,
                 "browser.region.update.enabled": False}


class Firefox(Browser):
    preferences = {}  # further ones

    def start(self):
        # Nothing is asked of the network, and no first run's pages come up.
        preferences = {"marionette.port": 0, "app.update.enabled": False, "browser.shell.checkDefaultBrowser": False,
                       "datareporting.policy.dataSubmissionEnabled": False, "network.captive-portal-service.enabled": False,
                       "network.connectivity-service.enabled": False, "browser.aboutConfig.showWarning": False,
                       "browser.startup.page": 0, "toolkit.telemetry.enabled": False,
                       # However often it is killed.
                       "toolkit.startup.max_resumed_crashes": -1, **FEW_PROCESSES, **self.preferences}
        lines = [f"user_pref({json.dumps(name)}, {json.dumps(value)});\n" for name, value in preferences.items()]
        pathlib.Path(self.profile, "user.js").write_text("".join(lines), encoding="utf-8")
        # Of a start before.
        port = pathlib.Path(self.profile, "MarionetteActivePort")
        port.unlink(missing_ok=True)
        self.launch(needed("firefox-esr"), "--headless", "--no-remote", "--marionette", "--remote-allow-system-access",
                    "--profile", self.profile, *self.arguments)
        number = int(self.wait_for(lambda: port.exists() and port.read_text(encoding="ascii").strip()))
        self.socket = socket.create_connection(("127.0.0.1", number), timeout=ANSWER_SECONDS)
        self.stream = self.socket.makefile("rb")
        self.read()  # the greeting
        self.number = 0
        self.command("WebDriver:NewSession", timeouts={"script": ANSWER_SECONDS * 1000})

    def crash(self):
        super().crash()
        self.stream.close()
        self.socket.close()

    def quit(self):
        self.command("Marionette:Quit", flags=["eForceQuit"])
        self.stream.close()
        self.socket.close()

    def read(self):
        length = b""
        while not length.endswith(b":"):
            byte = self.stream.read(1)
            if not byte:
                raise BrowserError("Firefox closed the connection")
            length += byte
        return json.loads(self.stream.read(int(length[:-1])))

    def command(self, name, **parameters):
        self.number += 1
        message = json.dumps([0, self.number, name, parameters]).encode()
        self.socket.sendall(b"%d:" % len(message) + message)
        _, number, error, result = self.read()
        if number != self.number:
            raise BrowserError("Firefox answers another command")
        if error:
            raise BrowserError(error["message"])
        return result.get("value") if isinstance(result, dict) else result

    def open(self, address):
        self.command("WebDriver:Navigate", url=address)

    def script(self, text, *arguments):
        return self.command("WebDriver:ExecuteScript", script=text, args=list(arguments))

    def in_browser(self, text, *arguments):
        """Runs the function body in the browser's own window."""
        self.command("Marionette:SetContext", value="chrome")
        try:
            return self.script(text, *arguments)
        finally:
            self.command("Marionette:SetContext", value="content")

    def look(self, width, height, scheme):
        # A window cannot be as narrow as a phone, what it shows can.
        self.in_browser("""
            Services.prefs.setIntPref("layout.css.prefers-color-scheme.content-override", arguments[2] == "dark" ? 0 : 1);
            window.resizeTo(1500, 1300);
            const style = gBrowser.selectedBrowser.style;
            style.flex = "none"; style.width = arguments[0] + "px"; style.height = arguments[1] + "px";
        """, width, height, scheme)
        end = time.monotonic() + START_SECONDS
        while self.script("return innerWidth") != width and time.monotonic() < end:
            time.sleep(0.02)

    def press(self, *keys):
        actions = [{"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]
        self.command("WebDriver:PerformActions", actions=[{"type": "key", "id": "keyboard", "actions": actions}])

    def picture(self):
        return self.command("WebDriver:TakeScreenshot", full=False)

    def messages(self):
        """What the console says of the page since the last call."""
        return self.in_browser("""
            const storage = Cc["@mozilla.org/consoleAPI-storage;1"];
            const said = Services.console.getMessageArray().filter(each => each instanceof Ci.nsIScriptError)
              .filter(each => /^file:/.test(each.sourceName)).map(each => each.errorMessage);
            Services.console.reset();
            return said;
        """)
