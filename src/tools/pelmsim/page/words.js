// What events are called, and which of them are trouble.

const operations = [
    ["add", 1], ["rm", 2], ["mod", 4], ["chain", 8], ["move", 16],
    ["cfgr", 16384], ["rollback", 32768], ["smooth", 65536],
];

// Of each level a sign, so that colour alone says nothing.
const signs = { good: "✓", warn: "▲", bad: "✗", fault: "↯" };

// How a kind of event is drawn: as an arrow to or from the daemon, as a note at the lane of its
// peer, or across all lanes as what belongs to the script. A function says the rest: the subject,
// and of what came of it the level and words.
const kinds = {
    "connected": ["note", () => ({ subject: "connected" })],
    "asked": ["arrow", asked],
    "request": ["arrow", requested],
    "stray-answer": ["arrow", stray],
    "frame": ["frame", frame],
    "unreadable": ["arrow", event => bad("unreadable", defectOf(event))],
    "closed": ["note", closed],
    "refused": ["note", event => bad("connection", `refused: ${event.text}`)],
    "waiting": ["note", event => warn("new connections", `have to wait: ${event.text}`)],
    "notification": ["arrow", notified],
    "dropped": ["note", () => warn("notifications", "dropped from now on: the oldest ones")],
    "warning": ["note", event => warn("", `warning: ${event.text}`)],
    "fault": ["note", faulty],
    "restart": ["band", () => ({ subject: "The daemon restarts" })],
    "ended": ["note", ended],
    "output": ["output", event => ({ subject: event.text })],
    "command": ["command", event => ({ subject: event.text })],
    "outcome": ["result", event => ({ subject: "", ...outcomeOf(event) })],
    "shown": ["result", event => ({ subject: event.text, isCode: true })],
    "heading": ["heading", event => ({ subject: event.text })],
    "expectation": ["result", expectation],
    "explanation": ["result", event => ({ subject: `Nothing came: ${event.text}` })],
    "mistake": ["result", event => bad("", `mistake: ${event.text}`)],
    "result": ["result", result],
    "unreadable-line": ["band", unreadableLine],
};

function wordsOf(event) {
    const [form, tell] = Object.hasOwn(kinds, event.kind) ? kinds[event.kind] : ["note", unknown];
    const words = { subject: "", level: "", outcome: "", ...tell(event), form };
    words.isTrouble = ["warn", "bad", "fault"].includes(words.level) && event.kind !== "outcome";
    return words;
}

const bad = (subject, outcome) => ({ subject, outcome, level: "bad" });
const warn = (subject, outcome) => ({ subject, outcome, level: "warn" });

function subjectOf(event) {
    const words = [event.called || event.method || "empty rpc", event.path];
    if (event.operation !== undefined)
        words.push(operationText(event.operation));
    if (event.kind === "request" && event.body.includes("<old/>"))
        words.push("(old)");
    return words.filter(word => word !== "").join(" ");
}

function operationText(bits) {
    const names = operations.filter(([, bit]) => bits & bit).map(([name]) => name);
    return names.join("|") || "none";
}

function asked(event) {
    const subject = subjectOf(event);
    if (event.isCutOff)
        return bad(subject, "never answered: the recording ends before");
    if (event.text !== "")
        return warn(subject, `may be dropped: the plugin still waits for its ${event.text}`);
    return { subject };
}

function requested(event) {
    const subject = subjectOf(event);
    if (event.outcome === "")
        return bad(subject, "never answered");
    return { subject, isAnswer: event.direction === "to", ...outcomeOf(event) };
}

function stray(event) {
    return bad(`answer ${event.id}`, "dropped: too late, or twice; nobody waits for it");
}

function outcomeOf(event) {
    const { outcome, code, reason } = event;
    const error = [code === undefined ? "" : `error ${code}`, reason].filter(Boolean).join(" ");
    switch (outcome) {
    case "ok": return { outcome: "ok", level: "good" };
    case "error": return { outcome: `refused: ${error || "error"}`, level: "bad" };
    case "no-answer": return { outcome: `no answer: ${reason}`, level: "bad" };
    case "unheard": return { outcome: `unheard: ${reason || "nobody was concerned"}` };
    case "ended": return { outcome: `ended: ${reason || statusText(code ?? 0)}` };
    default: return { outcome };
    }
}

function frame(event) {
    const [, root] = /^<([^\s/>]+)/.exec(event.body) ?? [];
    return { subject: `frame ${event.id}, ${bytes(event.count)}${root ? `: <${root}>` : ""}` };
}

function bytes(count = 0) {
    return count === 1 ? "1 byte" : `${count} bytes`;
}

function defectOf({ cause, count, text }) {
    switch (cause) {
    case "garbage": return `${bytes(count)} that begin no frame`;
    case "no-xml": return `no well-formed XML in a frame of ${bytes(count)}${text && `: ${text}`}`;
    case "no-request": return `<${text}> where a request was expected`;
    case "no-parameters": return `<${text}> without a method and params`;
    default: return text;
    }
}

function closed({ cause, count, text }) {
    switch (cause) {
    case "by-peer": return { subject: "hung up" };
    case "by-daemon": return { subject: `the daemon hung up${text && `: ${text}`}` };
    case "fault": return { subject: "the daemon hung up: a fault" };
    case "unread": return bad("the daemon hung up", `too slow: ${bytes(count)} are unread`);
    default: return bad("the daemon hung up", `failure: ${text || cause}`);
    }
}

function notified(event) {
    const length = new TextEncoder().encode(event.text).length;
    if (event.cause === "no-xml")
        return { ...warn("notification", "not passed on: no well-formed XML"), isCode: true };
    const passed = event.count === undefined ? "" : `passed on to ${event.count}`;
    return { subject: `notification, ${bytes(length)}`, outcome: passed };
}

function faulty(event) {
    const subject = event.frame === "answer" ? `answer to ${event.method}` : event.method;
    return { subject, outcome: `fault: ${event.text}`, level: "fault" };
}

function ended(event) {
    const how = statusText(event.status ?? 0);
    const name = event.peer || "process";
    if (event.good === false)
        return bad(name, `ended badly: ${how}`);
    return { subject: `${name} ended: ${how}` };
}

// Of a process, as waitpid() gives it.
function statusText(status) {
    const signal = status & 0x7f;
    return signal === 0 ? `status ${(status >> 8) & 0xff}` : `signal ${signal}`;
}

function expectation({ good, text, got, difference }) {
    if (good !== false)
        return { subject: text, outcome: "holds", level: "good" };
    return bad("", `expected ${text}, got ${difference ? "other XML" : got}`);
}

function result(event) {
    if (event.mistake !== "")
        return bad("", `mistake: ${event.mistake}`);
    if (event.good !== undefined)
        return expectation({ ...event, text: event.expected });
    return outcomeOf(event);
}

function unreadableLine(event) {
    const what = event.isLast ? "The recording is cut off here" : "A line that is no event";
    return { ...warn(what, "unreadable"), isCode: true };
}

function unknown(event) {
    const { kind, method, path, text } = event;
    return { subject: [kind, method, path, text].filter(Boolean).join(" ") };
}
