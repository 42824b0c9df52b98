"""A Chromium without a window, steered over a pipe by its DevTools protocol."""

import json
import os
import select
import shutil
import subprocess
import tempfile
import time

LIMIT = 30  # seconds, for whatever is waited for


class Chromium:
    def __init__(self, program, *options):
        self.profile = tempfile.mkdtemp(prefix="pelm-browser-")
        ours_to_read, its_to_write = os.pipe()
        its_to_read, ours_to_write = os.pipe()
        self.process = self._start(program, its_to_read, its_to_write, options)
        os.close(its_to_read)
        os.close(its_to_write)
        self.input, self.output = ours_to_read, ours_to_write
        self.received = b""
        self.last_id = 0
        self.events = []
        target = self.call("Target.createTarget", url="about:blank", session=None)["targetId"]
        attached = self.call("Target.attachToTarget", targetId=target, flatten=True, session=None)
        self.session = attached["sessionId"]
        for domain in ("Page", "Runtime", "Network", "Log"):
            self.call(domain + ".enable")

    # The browser reads from descriptor 3 and writes to 4.
    def _start(self, program, its_to_read, its_to_write, options):
        def place():
            reading, writing = os.dup(its_to_read), os.dup(its_to_write)
            os.dup2(reading, 3)
            os.dup2(writing, 4)

        words = [program, "--headless", "--no-sandbox", "--remote-debugging-pipe", *options,
                 "--disable-gpu", "--no-first-run", "--user-data-dir=" + self.profile]
        return subprocess.Popen(words, preexec_fn=place, close_fds=False, stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def close(self):
        os.close(self.output)
        self.process.kill()
        self.process.wait()
        os.close(self.input)
        shutil.rmtree(self.profile, ignore_errors=True)

    def call(self, method, session="", **parameters):
        self.last_id += 1
        message = {"id": self.last_id, "method": method, "params": parameters}
        if session is not None:
            message["sessionId"] = self.session
        os.write(self.output, json.dumps(message).encode() + b"\0")
        while True:
            answer = self._receive()
            if answer.get("id") != self.last_id:
                self.events.append(answer)
            elif "error" in answer:
                raise RuntimeError(f"{method}: {answer['error']}")
            else:
                return answer["result"]

    def _receive(self):
        until = time.monotonic() + LIMIT
        while b"\0" not in self.received:
            if not select.select([self.input], [], [], max(0, until - time.monotonic()))[0]:
                raise TimeoutError("the browser does not answer")
            piece = os.read(self.input, 1 << 20)
            if not piece:
                raise EOFError("the browser has ended")
            self.received += piece
        message, _, self.received = self.received.partition(b"\0")
        return json.loads(message)

    def open(self, file):
        self.events.clear()
        self.call("Page.navigate", url="file://" + os.path.abspath(file))
        while not any(each.get("method") == "Page.loadEventFired" for each in self.events):
            self.events.append(self._receive())

    def evaluate(self, expression):
        given = self.call("Runtime.evaluate", expression=expression, returnByValue=True,
                          awaitPromise=True)
        if "exceptionDetails" in given:
            raise RuntimeError(f"{expression}: {given['exceptionDetails']}")
        return given["result"].get("value")

    def next_picture(self):
        """Waits until what has changed has been drawn."""
        self.evaluate("new Promise(requestAnimationFrame)"
                      ".then(() => new Promise(requestAnimationFrame))")

    def click(self, selector):
        """Where the middle of the first such element is, whatever lies there."""
        x, y = self.evaluate(f"""(() => {{
            const box = document.querySelector({json.dumps(selector)}).getBoundingClientRect();
            return [box.x + box.width / 2, box.y + box.height / 2]; }})()""")
        self.click_at(x, y)

    def click_at(self, x, y):
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left", clickCount=1)
        self.next_picture()

    def write(self, text):
        self.call("Input.insertText", text=text)
        self.next_picture()

    def press(self, key):
        text = {"Enter": "\r"}.get(key, key if len(key) == 1 else "")
        code = {"Enter": 13, "Escape": 27, "ArrowDown": 40, "ArrowUp": 38, "End": 35}.get(key, 0)
        self.call("Input.dispatchKeyEvent", type="keyDown", key=key, text=text,
                  windowsVirtualKeyCode=code)
        self.call("Input.dispatchKeyEvent", type="keyUp", key=key, windowsVirtualKeyCode=code)
        self.next_picture()
