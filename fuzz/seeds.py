#!/usr/bin/env python3
"""Inputs of a target as one list, each a line in hexadecimal: seeds.py unpack LIST FOLDER | pack FOLDER LIST"""

import hashlib
import sys
from pathlib import Path

LONGEST = 64  # bytes, of those that are kept


def unpack(source, folder):
    for line in source.read_text().split():
        data = bytes.fromhex(line)
        (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)


def pack(folder, target):
    inputs = {path.read_bytes() for path in folder.iterdir()}
    kept = sorted(data.hex() for data in inputs if 0 < len(data) <= LONGEST)
    target.write_text("".join(f"{line}\n" for line in kept))


if len(sys.argv) != 4 or sys.argv[1] not in ("pack", "unpack"):
    sys.exit(__doc__)
{"pack": pack, "unpack": unpack}[sys.argv[1]](Path(sys.argv[2]), Path(sys.argv[3]))
