"""Drives a headless Chromium over a pair of pipes: opens pages, presses keys, asks, takes pictures.

The protocol is JSON with a zero byte behind each message, so the standard library is enough.
"""

import base64
import contextlib
import json
import os
import subprocess
import tempfile
import time

OPTIONS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"]
OPTIONS += ["--remote-debugging-pipe", "--hide-scrollbars", "--no-first-run"]
PATIENCE = 60  # seconds for an answer of the browser's, on a machine that is busy
CODES = {"ArrowLeft": 37, "ArrowRight": 39, "End": 35, "Home": 36, "Enter": 13, "Tab": 9}


class Browser:
    """A running Chromium with one page; what the page's console says is kept in `said`."""

    def __init__(self, program):
        """Start it, and take its one page."""
        self.folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        to_it, self.out = os.pipe()
        self.into, from_it = os.pipe()
        shell = ["sh", "-c", f'exec "$@" 3<&{to_it} 4>&{from_it}', "sh"]
        self.process = subprocess.Popen(
            [*shell, program, *OPTIONS, f"--user-data-dir={self.folder.name}"],
            pass_fds=(to_it, from_it),
            stderr=subprocess.DEVNULL,
        )
        os.close(to_it)
        os.close(from_it)
        self.buffer = b""
        self.number = 0
        self.session = None
        self.said = []
        page = self.ask("Target.createTarget", url="about:blank")["targetId"]
        attached = self.ask("Target.attachToTarget", targetId=page, flatten=True)
        self.session = attached["sessionId"]
        for domain in ("Page", "Runtime", "Log"):
            self.ask(f"{domain}.enable")

    def close(self):
        """End it."""
        with contextlib.suppress(OSError, EOFError):
            self.ask("Browser.close")
        self.process.wait(PATIENCE)
        os.close(self.out)
        os.close(self.into)
        self.folder.cleanup()

    def ask(self, method, **parameters):
        """Send a command, and return its result."""
        self.number += 1
        command = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            command["sessionId"] = self.session
        message = json.dumps(command).encode() + b"\0"
        while message:
            message = message[os.write(self.out, message) :]
        while True:
            answer = self.read()
            if answer.get("id") == self.number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]

    def read(self):
        """Read a message, and keep what it says of the page."""
        while b"\0" not in self.buffer:
            read = os.read(self.into, 1 << 20)
            if not read:
                raise EOFError("the browser has ended")
            self.buffer += read
        message, _, self.buffer = self.buffer.partition(b"\0")
        event = json.loads(message)
        method = event.get("method", "")
        if method in ("Runtime.consoleAPICalled", "Runtime.exceptionThrown", "Log.entryAdded"):
            self.said.append(json.dumps(event["params"])[:500])
        return event

    def open(self, url, width=1400, height=900, **features):
        """Open a page in a window of a size, with media features such as prefers_color_scheme."""
        size = {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False}
        self.ask("Emulation.setDeviceMetricsOverride", **size)
        told = [{"name": k.replace("_", "-"), "value": v} for k, v in features.items()]
        self.ask("Emulation.setEmulatedMedia", media="", features=told)
        self.ask("Page.navigate", url="about:blank")
        self.said.clear()
        self.ask("Page.navigate", url=url)
        self.wait_for("document.readyState === 'complete'")

    def wait_for(self, expression):
        """Wait until something is so."""
        ends = time.monotonic() + PATIENCE
        while not self.value(f"Boolean({expression})"):
            if time.monotonic() > ends:
                raise TimeoutError(expression)
            time.sleep(0.02)

    def value(self, expression):
        """Return the value of an expression in the page, which may be a promise."""
        told = {"awaitPromise": True, "returnByValue": True}
        done = self.ask("Runtime.evaluate", expression=expression, **told)
        if "exceptionDetails" in done:
            raise RuntimeError(f"{expression}: {done['exceptionDetails']}")
        return done["result"].get("value")

    def press(self, key, times=1):
        """Press a key."""
        pressed = {"key": key, "code": key, "windowsVirtualKeyCode": CODES[key]}
        if key == "Enter":
            pressed["text"] = "\r"
        for _ in range(times):
            self.ask("Input.dispatchKeyEvent", type="keyDown", **pressed)
            self.ask("Input.dispatchKeyEvent", type="keyUp", **pressed)

    def save(self, file, method, **parameters):
        """Write what a command makes: a picture, or sheets of paper."""
        file.write_bytes(base64.b64decode(self.ask(method, **parameters)["data"]))
