// A recording: its events, each with what belongs to it, and the lanes that they are in.

const texts = [
    "time", "kind", "role", "peer", "direction", "method", "called", "id", "path", "outcome",
    "reason", "data", "body", "cause", "text", "place", "expected", "got", "difference", "shown",
    "mistake", "frame",
];
const numbers = ["pid", "operation", "code", "count", "status", "ms"];

// Each line is one event. A line that cannot be read, such as the last of a recording that was cut
// off, becomes an event that says so.
function readEvents(text) {
    const events = [];
    for (const line of text.split("\n"))
        if (line.trim() !== "")
            events.push(readEvent(line));
    for (const [index, event] of events.entries())
        event.isLast = index === events.length - 1;
    return events;
}

function readEvent(line) {
    const given = readMembers(line) ?? new Map([["kind", "unreadable-line"], ["text", line]]);
    const event = { given, frames: [] };
    for (const name of texts)
        event[name] = given.get(name) ?? "";
    for (const name of numbers)
        event[name] = numberIn(given.get(name));
    event.good = given.has("good") ? given.get("good") === "true" : undefined;
    event.at = Date.parse(event.time);
    return event;
}

// All as texts, since in a line that somebody else has written they may be of any type, and so deep
// that only this fails.
function readMembers(line) {
    try {
        const value = JSON.parse(line);
        if (typeof value?.kind !== "string")
            return null;
        const asText = each => typeof each === "string" ? each : JSON.stringify(each);
        return new Map(Object.entries(value).map(([name, each]) => [name, asText(each)]));
    } catch {
        return null;
    }
}

function numberIn(text) {
    const number = text ? Number(text) : NaN;
    return Number.isFinite(number) ? number : undefined;
}

const laneOrder = ["daemon", "plugin", "agent", "notifier", "program"];

// Gives each event its lane, and returns them in the order in which they are shown. A plugin keeps
// its lane when it comes back as another process; what a process prints is in the lane of its
// connection.
function assignLanes(events) {
    const connections = findConnections(events);
    const lanes = new Map();
    for (const event of events) {
        const { role, name, pid } = connections.get(event) ?? peerOf(event);
        const key = keyOfLane(role, name, pid);
        if (!lanes.has(key))
            lanes.set(key, { key, role, name, pid, events: 0, spans: [] });
        event.lane = lanes.get(key);
        ++event.lane.events;
        event.lane.name ||= name;
    }
    return sortLanes([...lanes.values()]);
}

function keyOfLane(role, name, pid) {
    if (role === "daemon")
        return "daemon";
    return role === "plugin" && name ? `plugin ${name}` : `${role} ${pid || name}`;
}

function peerOf(event) {
    const role = laneOrder.includes(event.role) ? event.role : "daemon";
    return { role, name: role === "daemon" ? "" : event.peer, pid: event.pid ?? 0 };
}

// The connection of each event of a peer: whose name is known from some event until it is closed.
function findConnections(events) {
    const open = new Map(); // by role and process
    const found = new Map();
    for (const event of events) {
        const peer = peerOf(event);
        if (peer.role === "program")
            found.set(event, connectionOfProcess(open, peer));
        if (peer.role !== "plugin" && peer.role !== "agent")
            continue;
        const key = `${peer.role} ${peer.pid}`;
        if (event.kind === "connected" || !open.has(key))
            open.set(key, peer);
        const connection = open.get(key);
        connection.name ||= peer.name;
        found.set(event, connection);
    }
    return found;
}

function connectionOfProcess(open, program) {
    return open.get(`plugin ${program.pid}`) ?? open.get(`agent ${program.pid}`) ?? program;
}

// The daemon is there always.
function sortLanes(lanes) {
    if (!lanes.some(lane => lane.role === "daemon"))
        lanes.push({ key: "daemon", role: "daemon", name: "", pid: 0, events: 0, spans: [] });
    lanes.sort((a, b) => laneOrder.indexOf(a.role) - laneOrder.indexOf(b.role)); // a stable sort
    return lanes;
}

// Which frames a request and its answer are, by the ids in them. Ids begin anew with each
// connection, so it is the nearest one that counts: before the event what came, behind it what went
// out.
function attachFrames(events) {
    const came = new Map();
    const awaited = new Map();
    for (const event of events) {
        if (event.kind === "frame")
            meetFrame(event, came, awaited);
        else
            seekFrames(event, came, awaited);
    }
}

function meetFrame(frame, came, awaited) {
    const key = keyOfFrame(frame);
    if (frame.direction === "from")
        return came.set(key, frame);
    own(awaited.get(key), frame);
    awaited.delete(key);
}

function keyOfFrame(frame) {
    const { body } = frame;
    const id = /<id>([^<]*)<\/id><\/[a-z]+>$/.exec(body) ??
        /^<[^>]* message-id="([^"]*)"/.exec(body);
    const isAnswer = body.startsWith("<reply") || body.startsWith("<rpc-reply");
    return frameKey(frame, isAnswer, id?.[1]);
}

function frameKey(event, isAnswer, id) {
    return [event.role, event.pid, event.direction, isAnswer, id].join(" ");
}

function seekFrames(event, came, awaited) {
    const { kind, direction, id } = event;
    const isDaemons = kind === "asked" || direction === "to";
    if (kind === "asked")
        awaited.set(frameKey(event, false, id), event);
    const isAnswer = isDaemons || kind === "stray-answer";
    if (kind === "request" || kind === "stray-answer")
        take(came, frameKey({ ...event, direction: "from" }, isAnswer, id), event);
    if (kind === "request" && !isDaemons)
        awaited.set(frameKey({ ...event, direction: "to" }, true, id), event);
}

function take(frames, key, event) {
    own(event, frames.get(key));
    frames.delete(key);
}

function own(event, frame) {
    if (event === undefined || frame === undefined)
        return;
    event.frames.push(frame);
    frame.owner = event;
}

// Who was asked what: the event that asks and the one that says what came of it know each other.
function attachAnswers(events) {
    const open = new Map();
    for (const event of events) {
        const key = `${event.role} ${event.pid} ${event.id}`;
        if (event.kind === "asked") {
            open.set(key, event);
        } else if (event.kind === "request" && event.direction === "to" && open.has(key)) {
            event.partner = open.get(key);
            event.partner.partner = event;
            open.delete(key);
        }
    }
    for (const unanswered of open.values())
        unanswered.isCutOff = true;
}
