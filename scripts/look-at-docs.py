#!/usr/bin/python3
"""Opens the pages of a site in chromium: wide and narrow, light and dark.

    scripts/look-at-docs.py SITE SCREENSHOTS [PAGE...]

Saves a picture of each page in each way, and fails if a page is wider than a phone. With no pages named, those that
are no list of the reference: the guide, and a class.

It talks to the browser by a pair of pipes (--remote-debugging-pipe), so nothing else is needed.
"""

import base64
import contextlib
import json
import os
import pathlib
import subprocess
import sys
import tempfile

VIEWS = {"desktop": (1280, 900), "phone": (390, 844)}
SCHEMES = ("light", "dark")
REFERENCE = ("classvelora_1_1FileDestination.html", "classvelora_1_1XCGLogger.html", "classvelora_1_1LogCalls.html",
             "structvelora_1_1Constants.html", "namespacevelora.html", "Message_8h.html")
GENERATED = ("pages.html", "class", "struct", "concept", "dir_", "functions", "globals", "namespace")

# Whatever scrolls, the page itself must not be wider than the window. What is named then is the first element, from the
# inside out, that sticks out and has no scroll bar of its own around it.
# The width is the device's: a phone shows a page that is too wide smaller, in a window that is wider then.
MEASURE = """(width => {
    const page = document.getElementById("doc-content") || document.documentElement;
    const excess = Math.max(document.documentElement.scrollWidth, page.scrollWidth) - width;
    const scrolls = e => e && (["auto", "scroll", "hidden"].includes(getComputedStyle(e).overflowX) && e !== page
                               || scrolls(e.parentElement));
    const outside = [...document.body.querySelectorAll("*")].filter(
        e => e.getBoundingClientRect().right > width + 1 && getComputedStyle(e).position !== "absolute" && !scrolls(e));
    return JSON.stringify({excess, height: page.scrollHeight + page.offsetTop,
        culprit: outside.length ? outside[0].outerHTML.slice(0, 160) : ""});
})"""


class Browser:
    """One chromium, spoken to in the DevTools protocol: JSON texts, each ended by a NUL."""

    def __init__(self, profile):
        to_read, self.to = os.pipe()
        self.source, from_write = os.pipe()
        command = ["chromium", "--headless", "--remote-debugging-pipe", "--disable-gpu", "--hide-scrollbars",
                   "--disable-dev-shm-usage", "--no-first-run", "--disable-extensions", "--disable-background-networking",
                   f"--user-data-dir={profile}"]
        if os.getuid() == 0:
            command.append("--no-sandbox")
        shell = f'exec "$@" 3<&{to_read} 4>&{from_write}'
        self.process = subprocess.Popen(["bash", "-c", shell, "bash", *command], pass_fds=(to_read, from_write),
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_read)
        os.close(from_write)
        self.rest, self.number, self.session = b"", 0, None
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        self.call("Page.enable")

    def receive(self):
        while b"\0" not in self.rest:
            block = os.read(self.source, 1 << 20)
            if not block:
                sys.exit("look-at-docs: chromium has ended")
            self.rest += block
        message, self.rest = self.rest.split(b"\0", 1)
        return json.loads(message)

    def call(self, method, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.to, json.dumps(message).encode() + b"\0")
        while (answer := self.receive()).get("id") != self.number:
            pass
        if "error" in answer:
            sys.exit(f"look-at-docs: {method}: {answer['error']}")
        return answer["result"]

    def value(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, awaitPromise=True, returnByValue=True)
        return result["result"].get("value")

    def show(self, page, width, height, scheme):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                  mobile=width < 768)
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
        self.call("Page.navigate", url=page.as_uri())
        # The scripts of the page lay it out when it is loaded.
        self.value("""new Promise(done => {
            const later = () => setTimeout(done, 300);
            document.readyState === "complete" ? later() : addEventListener("load", later); })""")
        return json.loads(self.value(f"{MEASURE}({width})"))

    def save(self, width, height, file):
        """The whole page, as far as it is `height` high; or without a height, what the window shows."""
        # To show more, the window is resized for a moment, which the page's scripts notice.
        part = {"captureBeyondViewport": True,
                "clip": {"x": 0, "y": 0, "width": width, "height": height, "scale": 1}} if height else {}
        picture = self.call("Page.captureScreenshot", format="png", **part)
        file.write_bytes(base64.b64decode(picture["data"]))

    def end(self):
        with contextlib.suppress(OSError):
            os.close(self.to)
        try:
            self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()


def main():
    site, folder = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2])
    pages = [site / name for name in sys.argv[3:]]
    if not pages:
        pages = [page for page in sorted(site.glob("*.html"))
                 if page.name in REFERENCE or not page.name.startswith(GENERATED) and not page.stem.endswith("_source")
                 and "_8h" not in page.name]
    if not pages or not all(page.is_file() for page in pages):
        sys.exit(f"look-at-docs: {site} lacks pages")
    folder.mkdir(parents=True, exist_ok=True)
    too_wide = 0
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        browser = Browser(profile)
        for page in pages:
            for view, (width, height) in VIEWS.items():
                for scheme in SCHEMES:
                    seen = browser.show(page, width, height, scheme)
                    whole = max(min(seen["height"], 6000), height) if view == "phone" else None
                    browser.save(width, whole, folder / f"{page.stem}-{view}-{scheme}.png")
                    if seen["excess"] > 0:
                        too_wide += 1
                        print(f"{page.name}, {view}, {scheme}: {seen['excess']} pixels too wide: {seen['culprit']}")
        browser.end()
    print(f"{len(pages)} pages seen in {len(VIEWS) * len(SCHEMES)} ways, {too_wide} of them too wide; "
          f"the pictures: {folder}")
    sys.exit(1 if too_wide else 0)


if __name__ == "__main__":
    main()
