"""Recordings to look at: a real one, one cut off, one of a malicious peer, and a long one."""

import json
import subprocess

RUN = "document.title='ran'"
MARKUP = f'</script><script>{RUN}</script><img src=x onerror="{RUN}"><!--'


def of(script, simulator, plugin, examples):
    command = [simulator, "run", "--json", "--trace", "--config", examples + "/demo.xml",
               "--script", script, "--", plugin]
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def cut_off(recording):
    """Within the event that follows a request to the plugin."""
    asked = recording.index('"kind":"asked"', recording.index('"operation":4,'))
    return recording[:recording.index("\n", asked) + 30]


def event(kind, role, **members):
    time = {"time": "2026-01-31T12:00:00.000Z", "kind": kind, "role": role}
    return json.dumps(time | members, ensure_ascii=False)


def hostile():
    """Whatever came tries to be markup, also in members that are of another type."""
    texts = ["peer", "method", "path", "reason", "data", "body", "text", "got", "difference",
             "shown", "place", "id", "called", "direction", "outcome", "cause", "expected",
             "mistake"]
    everywhere = {name: MARKUP for name in texts}
    kinds = ["connected", "asked", "request", "frame", "unreadable", "notification", "warning",
             "ended", "output", "command", "shown", "heading", "expectation", "explanation",
             MARKUP, "__proto__"]
    lines = [event(kind, "plugin", **everywhere, pid=7, good=False) for kind in kinds]
    lines.append(event("frame", MARKUP, body=[MARKUP], peer={MARKUP: MARKUP}, count=MARKUP))
    lines.append(event("request", "plugin", direction="to", outcome="error", reason=MARKUP, id="1"))
    deep = "[" * 100000 + "]" * 100000
    lines.append('{"kind":"output","text":' + deep + "}")
    lines.append(event("frame", "plugin", body="<" * 200000 + "<!--" * 50000))
    return "\n".join([*lines, MARKUP, '"' + MARKUP + '"', "null", deep, "{"])


def long(events):
    """A plugin of many that is asked, refuses each hundredth change, and answers the others."""
    lines = []
    for each in range(events // 4):
        peer = {"peer": f"plugin{each % 20}", "pid": 100 + each % 20, "id": str(each)}
        request = {"method": "publish", "path": f"/system/row[{each}]", "operation": 4}
        body = f"<rpc><method>publish</method><params><n>{each}</n></params><id>{each}</id></rpc>"
        answer = f"<reply><result/><id>{each}</id></reply>"
        is_refused = each % 100 == 99
        result = {"outcome": "error", "code": 5} if is_refused else {"outcome": "ok"}
        lines.append(event("asked", "plugin", **peer, **request, direction="to"))
        lines.append(event("frame", "plugin", **peer, direction="to", body=body))
        lines.append(event("frame", "plugin", **peer, direction="from", body=answer))
        lines.append(event("request", "plugin", **peer, **request, **result, direction="to"))
    return "\n".join(lines)
