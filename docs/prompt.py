#!/usr/bin/env python3
"""prompt.py PELMSIM PLUGIN CONFIG FILE: draws a short session at the prompt, as SVG."""

import fcntl
import os
import pty
import re
import struct
import sys
import termios
from html import escape

LINE, LETTER, MARGIN = 18, 7.83, 14
COLOURS = {"1": "font-weight:bold", "2": "fill:#8b949e", "31": "fill:#ff7b72",
           "32": "fill:#7ee787", "33": "fill:#e3b341"}
SESSION = [("", b"/address add|cfgr: "),  # what is typed, and what is waited for before the next
           ('set /interfaces/interface[name="eth0"]/mtu 9000', b"=> "),
           ('set /interfaces/interface[name="eth0"] <address>192.0.2.300</address>', b"=> "),
           ("status /interfaces/stat", b"=> "),
           ("quit", b"status 0")]
FIRST_SHOWN = "mtu 9000"


def recorded(simulator, plugin, config):
    child, terminal = pty.fork()
    if child == 0:
        os.environ["TERM"] = "xterm"
        os.execv(simulator, [simulator, "run", "--config", config, "--", plugin])
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 40, 200, 0, 0))
    everything = b""
    for typed, awaited in SESSION:
        os.write(terminal, typed.encode() + b"\n" if typed else b"")
        came = b""
        while awaited not in came:
            came += os.read(terminal, 65536)
        everything += came
    return everything.decode()


def plain(line):
    return re.sub(r"\x1b\[\d*m", "", line)


def lines_of(session):
    """What stays on the screen, from the first command on."""
    for line in session.replace("\r\n", "\n").split("\n"):
        shown = line.split("\x1b[K")[-1].replace("\r", "")
        if plain(shown).strip() not in ("", "pelmsim>"):
            yield shown


def kept_blanks(text):
    return escape(text).replace(" ", "\N{NO-BREAK SPACE}")


def drawn(line, row):
    pieces, style = [], ""
    for piece in re.split(r"(\x1b\[\d*m)", line):
        code = re.fullmatch(r"\x1b\[(\d*)m", piece)
        if code:
            style = COLOURS.get(code[1], "")
        elif piece:
            pieces.append(f'<tspan style="{style}">{kept_blanks(piece)}</tspan>')
    return f'<text x="{MARGIN}" y="{MARGIN + LINE * (row + 1)}">{"".join(pieces)}</text>'


def main():
    simulator, plugin, config, picture = sys.argv[1:]
    lines = list(lines_of(recorded(simulator, plugin, config)))
    while FIRST_SHOWN not in lines[0]:
        lines.pop(0)
    width = max(len(plain(line)) for line in lines) * LETTER + 2 * MARGIN
    height = LINE * len(lines) + 3 * MARGIN
    with open(picture, "w", encoding="utf-8") as file:
        print(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:.0f} {height}"',
              ' font-family="DejaVu Sans Mono, Menlo, Consolas, monospace" font-size="13"',
              ' fill="#e6edf3">\n<title>A session at the prompt</title>',
              '<rect width="100%" height="100%" rx="8" fill="#0d1117"/>',
              *(drawn(line, row) for row, line in enumerate(lines)), "</svg>", sep="\n", file=file)


main()
