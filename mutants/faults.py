"""The lists of faults beside this file; see transport.txt for what an entry looks like."""

import re
import sys
from dataclasses import dataclass, field
from pathlib import Path

ROOM = Path(__file__).parent
MARKS = {"@": "function", "-": "old", "+": "new", "=": "reason"}


@dataclass
class Fault:
    place: str  # of the entry, for messages
    file: str  # below src/lib
    tests: list  # those that are most likely to notice
    title: str = ""
    function: str = ""
    old: str = ""
    new: str = ""
    reason: str = ""  # why no test notices, when that is accepted
    number: int = field(default=0)


def fail(message):
    sys.exit(f"mutants: {message}")


def blocks(path):
    """The blocks of a list, each with the number of its first line; comments are left out."""
    block, start = [], 0
    for number, line in enumerate([*path.read_text().splitlines(), ""], 1):
        if line.strip() and not line.startswith("#"):
            start = start if block else number
            block.append(line)
        elif block and not line.strip():
            yield start, block
            block = []


def entry(place, file, tests, lines):
    fault = Fault(place, file, tests)
    for line in lines:
        mark, text = line[:1], line[2:]
        if line[1:2].strip() or mark not in MARKS:
            mark, text = "", line
        name = MARKS.get(mark, "title")
        setattr(fault, name, f"{getattr(fault, name)}\n{text}".strip())
    if not fault.title or not fault.old:
        fail(f"{place}: an entry needs a title and the old text")
    return fault


def read():
    """All faults, numbered from 1 in the order of the lists."""
    faults = []
    for path in sorted(ROOM.glob("*.txt")):
        file, tests = "", []
        for start, block in blocks(path):
            place = f"mutants/{path.name}:{start}"
            if block[0].startswith("file "):
                file, tests = block[0].split()[1], block[1].split()[1:]
            else:
                faults.append(entry(place, file, tests, block))
    for number, fault in enumerate(faults, 1):
        fault.number = number
    return faults


def scope(source, fault):
    """Where the fault's function begins and ends; the whole source without one."""
    if not fault.function:
        return 0, len(source)
    head = re.search(rf"^[^\s#/}}].*\b{re.escape(fault.function)}\(.*", source, re.M)
    if not head:
        fail(f"{fault.place}: {fault.file} has no function {fault.function}")
    if head.group().endswith("}"):
        return head.span()
    return head.start(), source.index("\n}", head.start())


def span(source, fault):
    """Where the old text stands, however it is broken into lines."""
    first, last = scope(source, fault)
    text = r"\s*".join(re.escape(word) for word in re.findall(r"\w+|\S", fault.old))
    found = [match.span() for match in re.compile(text).finditer(source, first, last)]
    if len(found) != 1:
        fail(f"{fault.place}: the old text stands in {fault.file} {len(found)} times")
    return found[0]


def with_choice(fault, old):
    """The text that does what the old one does unless the fault is chosen."""
    number = str(fault.number)
    if "FAULT" in fault.new:
        return fault.new.replace("FAULT", number)
    if fault.old.endswith(";"):
        return f"if (::conf::chosen({number})) {{ {fault.new} }} else {{ {old} }}"
    return f"(::conf::chosen({number}) ? ({fault.new}) : ({old}))"


def planted(source, spans, first, last):
    """The source from first to last with its faults in, which may lie within each other."""
    text, at = "", first
    while spans:
        start, end, fault = spans.pop(0)
        if end > last:
            fail(f"{fault.place}: the old text begins within that of another fault")
        inner = []
        while spans and spans[0][0] < end:
            inner.append(spans.pop(0))
        if inner and "FAULT" in fault.new:
            fail(f"{fault.place}: FAULT leaves no place for {inner[0][2].place}")
        text += source[at:start] + with_choice(fault, planted(source, inner, start, end))
        at = end
    return text + source[at:last]


def plant(source, faults):
    spans = [(*span(source, fault), fault) for fault in faults]
    spans.sort(key=lambda each: (each[0], -each[1], each[2].number))
    text = planted(source, spans, 0, len(source))
    include = '#include "support/chosen.h"\n'
    once = "#pragma once\n"
    return text.replace(once, once + include, 1) if once in text else include + text
