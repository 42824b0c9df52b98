#!/usr/bin/env python3
"""Looks for links of a site that lead nowhere inside it: links.py FOLDER. Says which, and ends with 1."""
import pathlib
import sys
from html.parser import HTMLParser
from urllib.parse import unquote, urlsplit


class Page(HTMLParser):
    """What a page links to, and what in it can be linked to."""

    def __init__(self, path):
        super().__init__()
        self.targets, self.links = set(), set()
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attrs):
        for name, value in attrs:
            if name == "id" or (tag == "a" and name == "name"):
                self.targets.add(value)
            elif name in ("href", "src") and value:
                self.links.add(value)


def dangling(folder):
    """Yields what leads nowhere."""
    pages = {path.name: Page(path) for path in folder.glob("*.html")}
    for name, page in pages.items():
        for link in sorted(page.links):
            parts = urlsplit(link)
            if parts.scheme or parts.netloc:
                continue
            file = unquote(parts.path) or name
            wanted = unquote(parts.fragment)
            if not (folder / file).exists() or (wanted and wanted not in pages[file].targets):
                yield f"{name}: {link}"


if __name__ == "__main__":
    FOUND = list(dangling(pathlib.Path(sys.argv[1])))
    print("\n".join(FOUND))
    sys.exit(1 if FOUND else 0)
