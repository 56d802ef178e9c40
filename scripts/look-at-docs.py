#!/usr/bin/python3
"""Opens the pages of a site in chromium: wide and narrow, light and dark.

    scripts/look-at-docs.py SITE SCREENSHOTS [PAGE...]

Saves a picture of each page in each way, and fails if a page is wider than the window, cuts text off without a scroll
bar, or has text that differs too little from what is behind it: a contrast below 4.5:1, what WCAG 2 asks of text at
level AA. With no pages named, those that are no list of the reference: the guide, and a class.

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

    const shown = [...document.body.querySelectorAll("*")].filter(
        e => e instanceof HTMLElement && e.checkVisibility({checkVisibilityCSS: true}) && e.innerText?.trim());
    const hides = way => way === "hidden" || way === "clip";
    // The menu's button is a picture; its words are for who does not see it.
    const cut = shown.filter(e => {
        const style = getComputedStyle(e);
        return e.clientWidth > 0 && !e.matches(".main-menu-btn") && (
            hides(style.overflowX) && e.scrollWidth > e.clientWidth + 1 ||
            hides(style.overflowY) && e.scrollHeight > e.clientHeight + 1);
    });

    // Colours as red, green, blue and opacity; luminance and contrast as WCAG 2 defines them.
    const colour = text => { const [r, g, b, a = 1] = text.match(/[\\d.]+/g).map(Number); return [r, g, b, a]; };
    const over = ([r, g, b, a], [R, G, B]) => [r * a + R * (1 - a), g * a + G * (1 - a), b * a + B * (1 - a), 1];
    const behind = e => e ? over(colour(getComputedStyle(e).backgroundColor), behind(e.parentElement))
                          : [255, 255, 255, 1];
    const luminance = c => c.slice(0, 3).map(v => v / 255)
        .map(v => v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4)
        .reduce((sum, v, i) => sum + v * [0.2126, 0.7152, 0.0722][i], 0);
    const contrast = e => {
        const back = behind(e), text = over(colour(getComputedStyle(e).color), back);
        const [dark, light] = [luminance(back), luminance(text)].sort((a, b) => a - b);
        return (light + 0.05) / (dark + 0.05);
    };
    const hasText = e => [...e.childNodes].some(node => node.nodeType === Node.TEXT_NODE && node.data.trim());
    const read = shown.filter(hasText);
    const faint = read.filter(e => contrast(e) < 4.5);

    const name = e => e.outerHTML.replace(/\\s+/g, " ").slice(0, 160);
    return JSON.stringify({excess, height: page.scrollHeight + page.offsetTop, read: read.length,
        culprit: outside.length ? name(outside[0]) : "", cut: cut.map(name),
        faint: faint.map(e => `${contrast(e).toFixed(1)}:1 ${name(e)}`)});
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

    def show(self, page, width, height):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                  mobile=width < 768)
        self.call("Page.navigate", url=page.as_uri())
        # The scripts of the page lay it out when it is loaded, and unfold the list of pages.
        self.value("""new Promise(done => {
            const isMoving = () => window.jQuery && jQuery(":animated").length > 0;
            const later = () => setTimeout(() => isMoving() ? later() : done(), 300);
            document.readyState === "complete" ? later() : addEventListener("load", later); })""")

    def measure(self, width, scheme):
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
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


def complaints(seen):
    """What is wrong with a page, a line each; of elements of one kind, the first ones."""
    lines = []
    if seen["excess"] > 0:
        lines.append(f"{seen['excess']} pixels too wide: {seen['culprit']}")
    if seen["read"] == 0:
        lines.append("no text was found")
    for word in ("cut", "faint"):
        lines += [f"{word}: {element}" for element in seen[word][:5]]
        if len(seen[word]) > 5:
            lines.append(f"{word}: {len(seen[word]) - 5} more")
    return lines


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
    wrong = 0
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        browser = Browser(profile)
        for page in pages:
            for view, (width, height) in VIEWS.items():
                browser.show(page, width, height)
                for scheme in SCHEMES:
                    seen = browser.measure(width, scheme)
                    whole = max(min(seen["height"], 6000), height) if view == "phone" else None
                    browser.save(width, whole, folder / f"{page.stem}-{view}-{scheme}.png")
                    lines = complaints(seen)
                    wrong += bool(lines)
                    for line in lines:
                        print(f"{page.name}, {view}, {scheme}: {line}")
        browser.end()
    print(f"{len(pages)} pages seen in {len(VIEWS) * len(SCHEMES)} ways, {wrong} with something wrong; "
          f"the pictures: {folder}")
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
