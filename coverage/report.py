#!/usr/bin/env python3
"""Says which lines of the library no test has run, and fails when too many are left out; see usage."""

import json
import subprocess
import sys
from pathlib import Path

ROOM = Path(__file__).parent
LIBRARY, SIMULATOR = "src/lib/", ("src/sim/", "src/tools/pelmsim/")
LEAST_BRANCHES = 95  # percent, of the library
LEAST_LINES = 90  # percent, of the simulator


def read_left_out():
    """The lines that may be left out: by file, their texts."""
    accepted, file = {}, None
    for block in (ROOM / "left_out.txt").read_text().split("\n\n"):
        lines = [line for line in block.splitlines() if not line.startswith("#")]
        if not lines:
            continue
        file = LIBRARY + lines[0].removeprefix("file ")
        accepted[file] = set(lines[2:])  # behind the reason
    return accepted


def count(build, places):
    """What gcovr says of the files in these places."""
    filters = [word for place in places for word in ("--filter", place)]
    # What gcov works out from a process that was killed between two counters may be below 0.
    report = subprocess.run(["gcovr", "-r", ".", build, *filters, "--exclude-throw-branches",
                             "--exclude-unreachable-branches", "--gcov-ignore-parse-errors",
                             "--json"],
                            check=True, capture_output=True, text=True).stdout
    return json.loads(report)["files"]


def lines_of(files):
    for file in files:
        for line in file["lines"]:
            if not line["gcovr/noncode"] and not line.get("gcovr/excluded"):
                yield file["file"], line


def percent(part, whole):
    return 100 * part / whole


def report_library(build):
    lines = list(lines_of(count(build, [LIBRARY])))
    branches = [branch["count"] > 0 for _, line in lines for branch in line["branches"]]
    missing = [(file, line["line_number"]) for file, line in lines if line["count"] == 0]
    accepted = read_left_out()
    unexplained, used = [], set()
    for file, number in missing:
        text = Path(file).read_text().splitlines()[number - 1].strip()
        if text in accepted.get(file, ()):
            used.add((file, text))
        else:
            unexplained.append(f"{file}:{number}: no test runs this: {text}")
    unused = [f"{file}: tests run this now, or it is gone: {text}"
              for file, texts in accepted.items() for text in texts if (file, text) not in used]
    print(*unexplained, *unused, sep="\n", end="\n" if unexplained or unused else "")
    print(f"src/lib: {percent(len(lines) - len(missing), len(lines)):.1f} % of {len(lines)} lines, "
          f"{len(missing)} left out, {len(missing) - len(unexplained)} of them with a reason; "
          f"{percent(sum(branches), len(branches)):.1f} % of {len(branches)} branches")
    return not unexplained and not unused and percent(sum(branches), len(branches)) >= LEAST_BRANCHES


def report_simulator(build):
    lines = [line["count"] > 0 for _, line in lines_of(count(build, SIMULATOR))]
    print(f"simulator: {percent(sum(lines), len(lines)):.1f} % of {len(lines)} lines")
    return percent(sum(lines), len(lines)) >= LEAST_LINES


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: report.py BUILD, from the project's root, once the tests have run")
    good = [report_library(sys.argv[1]), report_simulator(sys.argv[1])]
    sys.exit(0 if all(good) else 1)


main()
