#!/usr/bin/env python3
"""Copies the sources into a directory, with all faults compiled in: plant.py DIRECTORY"""

import subprocess
import sys
from pathlib import Path

import faults

TOP = faults.ROOM.parent
LIBRARY = "src/lib/"


def write_if_changed(path, content):
    if path.exists() and path.read_bytes() == content:
        return
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content)


def copy_sources(target, planted):
    listing = subprocess.run(["git", "ls-files", "-z", "-co", "--exclude-standard"], cwd=TOP,
                             check=True, capture_output=True, text=True).stdout
    names = {name for name in listing.split("\0") if name and (TOP / name).is_file()}
    for name in names - planted.keys():
        write_if_changed(target / name, (TOP / name).read_bytes())
        (target / name).chmod((TOP / name).stat().st_mode)
    for name, text in planted.items():
        write_if_changed(target / name, text.encode())
    for path in target.rglob("*"):
        name = path.relative_to(target).as_posix()
        if path.is_file() and not name.startswith("build/") and name not in names | planted.keys():
            path.unlink()


def main():
    every = faults.read()
    planted = {LIBRARY + "support/chosen.h": (faults.ROOM / "chosen.h").read_text()}
    for file in sorted({fault.file for fault in every}):
        source = (TOP / LIBRARY / file).read_text()
        planted[LIBRARY + file] = faults.plant(source, [f for f in every if f.file == file])
    copy_sources(Path(sys.argv[1]), planted)


main()
