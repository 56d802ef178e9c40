#!/usr/bin/python3
"""Looks whether every local link of a site leads to something: a file, and in it the anchor.

    scripts/check-links.py FOLDER

Prints each link that does not, and fails if there is one, or if there are no pages at all.
"""

import html.parser
import pathlib
import sys
import urllib.parse


# Doxygen links to these headings of a page, also where everything below them is private and so the heading is not there.
EMPTY_HEADINGS = {"nested-classes", "concepts"}


class Page(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.links, self.anchors = set(), set()
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("id", "name"):
                self.anchors.add(value)
            elif name in ("href", "src") and value:
                self.links.add(value)


def main():
    folder = pathlib.Path(sys.argv[1]).resolve()
    pages = {path: Page(path) for path in sorted(folder.glob("**/*.html"))}
    if not pages:
        sys.exit(f"{folder} has no pages")
    count, broken = 0, []
    for path, page in pages.items():
        for link in sorted(page.links):
            url = urllib.parse.urlsplit(link)
            if url.scheme or url.netloc:
                continue
            count += 1
            target = (path.parent / urllib.parse.unquote(url.path)).resolve() if url.path else path
            anchor = urllib.parse.unquote(url.fragment)
            if not target.is_file() or not target.is_relative_to(folder):
                broken.append(f"{path.relative_to(folder)}: there is no {link}")
            elif anchor and target in pages and anchor not in pages[target].anchors | EMPTY_HEADINGS:
                broken.append(f"{path.relative_to(folder)}: there is no anchor {link}")
    print(*broken, sep="\n", end="\n" if broken else "")
    print(f"{count} local links in {len(pages)} pages, {len(broken)} of them broken")
    sys.exit(1 if broken else 0)


if __name__ == "__main__":
    main()
