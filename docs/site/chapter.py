#!/usr/bin/env python3
"""Prints a document as Doxygen wants it: chapter.py FILE.

On a forge, a heading is found by its words and another document by its path. Doxygen wants names
that are given to both, one for all documents, knows no words behind the language of a block, and
takes some marks for others. A manual page is shown as a terminal shows it.
"""
import os
import re
import subprocess
import sys

BLOCK = re.compile(r"(^```.*?^```$)", re.MULTILINE | re.DOTALL)
LINK = re.compile(r"(?<!!)\[([^\]]*)\]\(([^)#\s]*)(?:#([^)\s]*))?\)")
HEADING = re.compile(r'(?:<a id="([^"]*)"></a>\n)?^(#+) (.*)$', re.MULTILINE)
CODE = re.compile(r"`([^`]+)`")
ANCHOR = re.compile(r'^<a id="([^"]*)"></a>$', re.MULTILINE)


def name_of(path, heading=""):
    """The name of a document, or of what stands in it."""
    stem = os.path.basename(path).removesuffix(".md").lower()
    return re.sub(r"[^a-z0-9_]", "_", f"{stem}_{heading or 'chapter'}")


def slug(heading):
    """How a forge finds a heading."""
    kept = re.sub(r"[^\w\- ]", "", LINK.sub(r"\1", heading).lower())
    return kept.strip().replace(" ", "-")


def code(match):
    """Code in a line. Doxygen reads quotation marks and backslashes in it, too."""
    words = match[1].replace("\n", " ").replace("\\|", "|")
    if not re.search(r"[\"'\\|]", words):
        return f"`{words}`"
    signs = re.sub(r"([\"\\|<>&@#%])", r"\\\1", words).replace("'", "&apos;")
    signs = signs.replace("--", "\\--")
    return f"<code>{signs}</code>"


def block(text):
    """A block with a language that is known, or none; a diagram goes."""
    first, rest = text.split("\n", 1)
    language = (first[3:].split() or [""])[0]
    if language == "mermaid":
        return ""
    return "```{.%s}\n%s" % (language if language in ("c", "cpp", "cmake") else "unparsed", rest)


def prose(document, text):
    """What stands between blocks."""

    def link(match):
        path, heading = match[2], match[3] or ""
        if path.startswith(("http:", "https:")):
            return match[0]
        if path and not path.endswith(".md"):
            return match[1]  # a file that is not in the site
        words = match[1].replace("\n", " ")
        return f"[{words}](@ref {name_of(path or document, heading)})"

    def heading(match):
        own = "" if match[2] == "#" else match[1] or slug(match[3])
        return "%s %s {#%s}" % (match[2], match[3], name_of(document, own))

    text = CODE.sub(code, text)
    text = HEADING.sub(heading, LINK.sub(link, text))
    return ANCHOR.sub(lambda match: f"@anchor {name_of(document, match[1])}", text)


def converted(document, text):
    """The document, blocks and prose in turn."""
    pieces = BLOCK.split(text)
    return "".join(block(piece) if piece.startswith("```") else prose(document, piece)
                   for piece in pieces)


def manual(path):
    """A manual page; what is overstruck there is in bold or underlined."""
    shown = subprocess.run(["mandoc", "-Tascii", "-Owidth=88", path], check=True, capture_output=True,
                           encoding="utf-8").stdout
    name, _, section = os.path.basename(path).rpartition(".")
    shown = re.sub(".\b", "", shown)
    return f"# {name}({section})\n\n```{{.unparsed}}\n{shown}```"


def chapter(path):
    """The file as a page of the site."""
    if not path.endswith(".md"):
        return manual(path)
    with open(path, encoding="utf-8") as file:
        return converted(path, file.read())


if __name__ == "__main__":
    print(chapter(sys.argv[1]))
