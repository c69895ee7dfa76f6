"""Chromium without a window, told what to do by the pipe of its own debugging protocol.

https://chromedevtools.github.io/devtools-protocol/ describes the methods and events by their names. It answers each call, so
nothing has to be waited for by time.
"""

import base64
import json
import os
import select
import subprocess
import time

from device import PATIENCE
from fleet import held

QUIET = ["--no-first-run", "--disable-background-networking", "--disable-component-update", "--disable-sync", "--disable-extensions"]
ALONE = ["--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars"]
# It ends with whoever started it, and all that it starts ends with it; it has no network.
PRIVILEGE = [] if os.geteuid() == 0 else ["--map-root-user"]
BOUND = ["setpriv", "--pdeathsig", "KILL", "unshare", *PRIVILEGE, "--net", "--pid", "--fork", "--kill-child", "--mount-proc"]
# Its files are in memory that ends with it. The protocol is spoken by descriptors 3 and 4.
MEMORY = "/dev/shm"
PIPED = ["sh", "-c", f'mount -t tmpfs -o mode=700 browser {MEMORY} && exec "$@" 3<&0 4>&1 </dev/null >/dev/null', "sh"]
KEYS = {"Tab": 9, "Enter": 13, "Escape": 27, "/": 191}


class Browser:
    """One process for many pages. What it complains of is in the file `log`; `close` ends it."""

    def __init__(self, log):
        self.log = log
        self.sent, self.rest, self.events = 0, b"", []
        environment = {"HOME": MEMORY, "TMPDIR": MEMORY, "XDG_RUNTIME_DIR": MEMORY, "PATH": "/usr/bin:/bin"}
        command = [*BOUND, *PIPED, "chromium", *ALONE, *QUIET, f"--user-data-dir={MEMORY}/profile", "--remote-debugging-pipe"]
        with open(log, "wb") as err:
            self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=err, env=environment,
                                            pass_fds=held)

    def close(self):
        self.process.kill()
        self.process.wait()
        self.process.stdin.close()
        self.process.stdout.close()

    def call(self, method, session=None, **parameters):
        """Calls a method and waits for what it returns."""
        self.sent += 1
        message = {"id": self.sent, "method": method, "params": parameters}
        if session:
            message["sessionId"] = session
        os.write(self.process.stdin.fileno(), json.dumps(message).encode() + b"\0")
        answer = self.await_message(method, lambda found: found.get("id") == self.sent)
        assert "error" not in answer, f"{method}: {answer['error']}"
        return answer["result"]

    def await_event(self, name, session):
        """Waits for an event, unless it has come already."""
        fits = lambda found: found.get("method") == name and found.get("sessionId") == session
        for event in self.events:
            if fits(event):
                return event
        return self.await_message(name, fits)

    def await_message(self, what, fits):
        deadline = time.monotonic() + PATIENCE
        while True:
            while b"\0" in self.rest:
                text, _, self.rest = self.rest.partition(b"\0")
                message = json.loads(text)
                if "method" in message:
                    self.events.append(message)
                if fits(message):
                    return message
            source = self.process.stdout.fileno()
            ready, _, _ = select.select([source], [], [], max(0, deadline - time.monotonic()))
            content = os.read(source, 1 << 20) if ready else b""
            assert content, f"{what}: chromium {'has ended' if ready else 'does not answer'}\n{self.log.read_text()[-2000:]}"
            self.rest += content

    def open(self, path, width=1280, height=800, phone=False, dark=False):
        """A page with a file, once it has loaded."""
        return Page(self, path, width, height, phone, dark)


class Page:
    def __init__(self, browser, path, width, height, phone, dark):
        self.browser = browser
        self.target = browser.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = browser.call("Target.attachToTarget", targetId=self.target, flatten=True)["sessionId"]
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=phone)
        colours = {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}
        self.call("Emulation.setEmulatedMedia", features=[colours])
        for domain in ("Page", "Network", "Runtime", "Log"):
            self.call(f"{domain}.enable")
        self.call("Page.navigate", url=path.as_uri())
        browser.await_event("Page.loadEventFired", self.session)

    def __enter__(self):
        return self

    def __exit__(self, *_ignored):
        self.browser.call("Target.closeTarget", targetId=self.target)

    def call(self, method, **parameters):
        return self.browser.call(method, self.session, **parameters)

    def ask(self, script):
        """What the body of a function of JavaScript returns."""
        found = self.call("Runtime.evaluate", expression=f"(() => {{ {script} }})()", returnByValue=True)
        assert "exceptionDetails" not in found, found
        return found["result"].get("value")

    def press(self, key, times=1):
        """As the keyboard does it."""
        text = {"text": {"Enter": "\r"}.get(key, key)} if len(key) == 1 or key == "Enter" else {}
        code = KEYS.get(key) or ord(key.upper())
        for _ in range(times):
            self.call("Input.dispatchKeyEvent", type="keyDown", key=key, windowsVirtualKeyCode=code, **text)
            self.call("Input.dispatchKeyEvent", type="keyUp", key=key, windowsVirtualKeyCode=code)

    def type(self, text):
        for character in text:
            self.press(character)

    def picture(self, path):
        path.write_bytes(base64.b64decode(self.call("Page.captureScreenshot", format="png")["data"]))

    def asked_for(self):
        """The addresses that the page asked for."""
        return [event["params"]["request"]["url"] for event in self.of("Network.requestWillBeSent")]

    def complaints(self):
        """Errors of its script, and what its policy forbade."""
        return [*self.of("Runtime.exceptionThrown"), *self.of("Log.entryAdded")]

    def of(self, name):
        return [event for event in self.browser.events if event.get("method") == name and event.get("sessionId") == self.session]
