"""A headless Chromium, driven through a pipe: messages are JSON, each ended by a zero byte."""
import base64
import json
import os
import shutil
import subprocess
import tempfile


class Browser:
    """One page at a time. Keeps what the page's console says and what the page asks for."""

    def __init__(self, program="chromium"):
        self.profile = tempfile.mkdtemp()
        ours_in, theirs_out = os.pipe()
        theirs_in, ours_out = os.pipe()

        def take_places():  # the browser reads from descriptor 3 and writes to 4
            spare = os.dup(theirs_out)
            os.dup2(theirs_in, 3)
            os.dup2(spare, 4)
        self.process = subprocess.Popen(
            [program, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--remote-debugging-pipe",
             f"--user-data-dir={self.profile}", "about:blank"],
            preexec_fn=take_places, close_fds=False, stderr=subprocess.DEVNULL)
        os.close(theirs_out)
        os.close(theirs_in)
        self.incoming, self.outgoing = os.fdopen(ours_in, "rb"), os.fdopen(ours_out, "wb")
        self.pending, self.last, self.events, self.session = b"", 0, [], None
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(f"{domain}.enable")

    def close(self):
        self.process.kill()
        self.process.wait()
        self.incoming.close()
        self.outgoing.close()
        shutil.rmtree(self.profile, ignore_errors=True)

    def receive(self):
        while b"\0" not in self.pending:
            read = self.incoming.read1()
            if not read:
                raise RuntimeError("the browser has ended")
            self.pending += read
        message, self.pending = self.pending.split(b"\0", 1)
        return json.loads(message)

    def call(self, method, **parameters):
        self.last += 1
        message = {"id": self.last, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        self.outgoing.write(json.dumps(message).encode() + b"\0")
        self.outgoing.flush()
        while True:
            answer = self.receive()
            if answer.get("id") == self.last:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']['message']}")
                return answer["result"]
            self.events.append(answer)

    def open(self, path, width, scheme, media="screen"):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=800, deviceScaleFactor=1, mobile=width < 600)
        self.call("Emulation.setEmulatedMedia", media=media,
                  features=[{"name": "prefers-color-scheme", "value": scheme}])
        self.events = []
        self.call("Page.navigate", url=f"file://{path}")
        while not any(event.get("method") == "Page.loadEventFired" for event in self.events):
            self.events.append(self.receive())

    def complaints(self):
        """Entries of the console, exceptions, and requests other than the page itself."""
        kinds = ("Log.entryAdded", "Runtime.consoleAPICalled", "Runtime.exceptionThrown")
        said = [event for event in self.events if event.get("method") in kinds]
        asked = [event for event in self.events if event.get("method") == "Network.requestWillBeSent"]
        return said + asked[1:]

    def value(self, expression):
        """What JavaScript makes of the expression; the page itself has none."""
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True)
        if "exceptionDetails" in result:
            raise RuntimeError(str(result["exceptionDetails"]))
        return result["result"].get("value")

    def screenshot(self, path, height=None):
        size = self.call("Page.getLayoutMetrics")["cssContentSize"]
        clip = {"x": 0, "y": 0, "width": size["width"], "height": height or size["height"], "scale": 1}
        picture = self.call("Page.captureScreenshot", captureBeyondViewport=True, clip=clip)
        with open(path, "wb") as file:
            file.write(base64.b64decode(picture["data"]))

    def print(self, path):
        self.call("Emulation.setEmulatedMedia", media="", features=[{"name": "prefers-color-scheme", "value": "dark"}])
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.call("Page.printToPDF", printBackground=True)["data"]))
