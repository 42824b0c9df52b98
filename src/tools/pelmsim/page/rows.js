// The rows of the diagram: an event each, but what a command shows at once stands in the command's
// row.

const heights = {
    heading: 60, band: 44, command: 36, arrow: 42, note: 32, output: 26, result: 30, frame: 26,
};

function makeRows(events) {
    const rows = [];
    for (const event of events) {
        const last = rows.at(-1);
        const row = { event, events: [event], ...wordsOf(event) };
        if (!joins(last, row))
            rows.push(row);
    }
    return rows;
}

// The rest of the row that a command has begun; says whether it is.
function joins(command, row) {
    if (command?.form !== "command" || command.events.length > 1)
        return false;
    const { kind } = row.event;
    if (kind === "heading")
        command.form = "heading";
    else if (kind !== "outcome" && !(kind === "expectation" && row.event.good !== false))
        return false;
    const { outcome, level } = row;
    Object.assign(command, kind === "heading" ? { subject: row.subject } : { outcome, level });
    command.events.push(row.event);
    return true;
}

// Those that are seen: a frame that belongs to an event is seen there. Each row learns its
// position, a hidden one that of the next.
function visibleRows(rows, { frames, lane }) {
    const visible = [];
    for (const row of rows) {
        row.position = visible.length;
        const isHidden = row.form === "frame" && row.event.owner !== undefined && !frames;
        const isIn = row.event.lane;
        const isElsewhere = lane !== null && isIn.role !== "daemon" && isIn !== lane;
        if (!isHidden && !isElsewhere)
            visible.push(row);
    }
    return visible;
}

// When a peer was connected, and when a request to it was open: from one row to another, to be
// drawn at its lane.
function makeSpans(rows) {
    const spans = [];
    const alive = new Map(); // by lane
    const rowOf = new Map();
    for (const row of rows) {
        const { event } = row;
        rowOf.set(event, row);
        spans.push(...lifeSpans(alive, row));
        if (event.kind === "request" && event.partner !== undefined)
            spans.push({ lane: event.lane, from: rowOf.get(event.partner), to: row, kind: "open" });
        if (event.isCutOff)
            spans.push({ lane: event.lane, from: row, to: rows.at(-1), kind: "open" });
    }
    for (const [lane, from] of alive)
        spans.push({ lane, from, to: rows.at(-1), kind: "alive" });
    return spans.sort((a, b) => a.kind.localeCompare(b.kind)); // what is open lies above
}

function lifeSpans(alive, row) {
    const { kind, lane } = row.event;
    if (kind === "connected" || (lane.role === "program" && !alive.has(lane)))
        alive.set(lane, row);
    const ends = kind === "closed" || (kind === "ended" && lane.role === "program");
    if (!ends || !alive.has(lane))
        return [];
    const from = alive.get(lane);
    alive.delete(lane);
    return [{ lane, from, to: row, kind: "alive" }];
}

function textOfRow(row) {
    row.searched ??= searchedText(row).toLowerCase();
    return row.searched;
}

function searchedText({ subject, outcome, events }) {
    const all = [...events, ...events.flatMap(event => event.frames)];
    const texts = all.flatMap(event => [...event.given.values()]);
    return [subject, outcome, ...texts].join("\n");
}
