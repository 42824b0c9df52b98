#!/usr/bin/env python3
"""Runs the tests of a build against each fault in it; see usage()."""

import argparse
import json
import os
import signal
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

import faults

LIMIT_SECONDS = 120  # a test that takes longer has noticed; the slowest takes some twenty
NO_PROGRAM = {"exports", "messages"}  # these look at the library without running it


class Test:
    def __init__(self, description):
        self.name = description["name"]
        self.command = description["command"]
        self.environment = {}
        properties = {each["name"]: each["value"] for each in description["properties"]}
        self.directory = properties["WORKING_DIRECTORY"]
        self.wants_the_machine = properties.get("RUN_SERIAL", False)
        for setting in properties.get("ENVIRONMENT", []):
            name, _, value = setting.partition("=")
            self.environment[name] = value
        for setting in properties.get("ENVIRONMENT_MODIFICATION", []):
            name, _, value = setting.partition("=path_list_prepend:")
            before = self.environment.get(name, os.environ.get(name, ""))
            self.environment[name] = f"{value}:{before}"

    def passes(self, fault):
        environment = os.environ | self.environment
        environment |= {"PELM_FAULT": str(fault), "GTEST_FAIL_FAST": "1"}
        process = subprocess.Popen(self.command, cwd=self.directory, env=environment,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, start_new_session=True)
        try:
            return process.wait(LIMIT_SECONDS) == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)  # with whatever it has left behind
            except ProcessLookupError:
                pass
            process.wait()


def read_tests(build):
    listing = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"], check=True,
                             capture_output=True, text=True).stdout
    tests = [Test(each) for each in json.loads(listing)["tests"]]
    return [each for each in tests if each.name not in NO_PROGRAM and not each.wants_the_machine]


def first_failure(tests, fault):
    likely = [test for name in fault.tests for test in tests if test.name == name]
    rest = [test for test in tests if test not in likely]
    return next((test.name for test in likely + rest if not test.passes(fault.number)), None)


def is_as_written(fault, noticed_by):
    """Prints what came of a fault. Returns whether the list says so."""
    if noticed_by:
        outcome = f"noticed by {noticed_by}" + (", OTHER THAN WRITTEN" if fault.reason else "")
    else:
        outcome = "survives, as written" if fault.reason else "SURVIVES"
    print(f"{fault.place}: {outcome}\n    PELM_FAULT={fault.number} {fault.title}", flush=True)
    return bool(noticed_by) != bool(fault.reason)


def chosen(every, options):
    """The faults in files whose path holds one of the names, or a few of all in turn."""
    if options.files:
        every = [f for f in every if any(name in f"src/lib/{f.file}" for name in options.files)]
    if not every:
        faults.fail("there is no fault in " + " or ".join(options.files))
    if options.count is None:
        return every
    start = options.first
    if start is None:
        commits = subprocess.run(["git", "rev-list", "--count", "HEAD"], cwd=faults.ROOM,
                                 check=True, capture_output=True, text=True).stdout
        start = int(commits) * options.count
    start %= len(every)
    print(f"mutants: {options.count} of {len(every)} faults, --from {start}")
    return (every + every)[start:start + min(options.count, len(every))]


def arguments():
    parser = argparse.ArgumentParser(prog="./dev mutants")
    parser.add_argument("files", nargs="*", metavar="FILE",
                        help="only faults in files of the library whose path holds this")
    parser.add_argument("--count", type=int, metavar="K", help="only K faults")
    parser.add_argument("--from", dest="first", type=int, metavar="N",
                        help="with --count: begin with the Nth, not where the commits' number says")
    parser.add_argument("--build", required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def main():
    options = arguments()
    tests = read_tests(options.build)
    selected = chosen(faults.read(), options)
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        for test, passes in zip(tests, pool.map(lambda test: test.passes(0), tests)):
            if not passes:
                faults.fail(f"{test.name} fails without any fault")
        noticed = pool.map(lambda fault: first_failure(tests, fault), selected)
        wrong = sum(not is_as_written(*pair) for pair in zip(selected, noticed))
    print(f"mutants: {len(selected)} faults tried, {wrong} not as written")
    sys.exit(1 if wrong else 0)


main()
