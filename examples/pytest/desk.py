"""A desk to try a plugin on: pelmsim plays its daemon, and says what came of each command."""

import contextlib
import json
import subprocess
from dataclasses import dataclass, field


class Mistake(Exception):
    """A command that pelmsim does not know or cannot carry out, or no pelmsim any more."""


@dataclass(frozen=True)
class Outcome:
    verdict: str = ""  # "ok", "error", "no-answer", "unheard", "ended"; "" of "echo" and the like
    code: int = 0
    reason: str = ""
    data: str = ""  # XML in one line
    shown: str = field(default="", compare=False)  # lines: who was told, or what was asked for

    @property
    def ok(self):
        return self.verdict == "ok"

    def __repr__(self):
        code = f" {self.code}" if self.code else ""
        reason = f" ({self.reason})" if self.reason else ""
        return f"<{self.verdict}{code}{reason} {self.data}>".replace(" >", ">")


def Error(code, reason):
    return Outcome("error", code, reason)


def _complaint(expected, event):
    return f"expected {expected}, got {event['got']}\n{event.get('difference', '')}".strip()


class Desk:
    def __init__(self, plugin, pelmsim=("pelmsim",), options=()):
        """The plugin, pelmsim and its options are lists of words."""
        command = [*pelmsim, "run", "--json", *options, "--", *plugin]
        pipes = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE, "encoding": "utf-8"}
        self._pelmsim = subprocess.Popen(command, **pipes)
        self._last_id = 0
        self.events = []  # that came of the last command

    def run(self, command, *arguments):
        """Any command of pelmsim's. What it waits for in vain, or expects, fails the test."""
        self._last_id += 1
        line = {"id": self._last_id, "command": command, "arguments": [*map(str, arguments)]}
        with contextlib.suppress(BrokenPipeError):
            print(json.dumps(line), file=self._pelmsim.stdin, flush=True)
        self.events = []
        for event in map(json.loads, self._pelmsim.stdout):
            if event["kind"] == "result":
                return self._outcome(event)
            self.events.append(event)
        raise Mistake(f"pelmsim ended with status {self._pelmsim.wait()}")

    def _outcome(self, result):
        if "mistake" in result:
            raise Mistake(result["mistake"])
        assert result.get("good", True), _complaint(result["expected"], result)
        names = ("code", "reason", "data", "shown")
        members = {name: result[name] for name in names if name in result}
        return Outcome(result.get("outcome", ""), **members)

    def set(self, path, xml):
        return self.run("set", path, xml)

    def delete(self, path):
        return self.run("delete", path)

    def status(self, path, *query):
        return self.run("status", path, *query)

    def operate(self, path, *xml):
        return self.run("operate", path, *xml)

    def show(self, path="/"):
        return self.run("show", path).data

    def wait_active(self, plugin):
        return self.run("wait", "active", plugin)

    def wait_output(self, text):
        return self.run("wait", "output", text)

    def expect(self, *what):
        return self.run("expect", *what)

    @property
    def pulled(self):
        """The paths that plugins read during the last command."""
        return [event["path"] for event in self.events if event.get("method") == "pull"]

    def close(self):
        """Ends everything; a plugin that ends badly, by a signal or a sanitizer, fails the test."""
        with contextlib.suppress(BrokenPipeError):
            self._pelmsim.stdin.close()
        left = [json.loads(line) for line in self._pelmsim.stdout]
        self._pelmsim.stdout.close()
        self._pelmsim.wait()
        for event in left:
            if event["kind"] == "expectation":
                assert event["good"], _complaint(event["text"], event)
