// What is known of one event, beside the diagram.

function showDetails(panel, row, go) {
    const { event } = row;
    const content = [element("p", "when", whenText(event)), element("h2", "", titleOf(row))];
    if (row.outcome)
        content.push(verdictOf(row));
    content.push(...linksOf(event, go));
    const frames = framesOf(event);
    content.push(...frames.flatMap(frame => frameParts(frame)));
    if (frames.length === 0 && ["asked", "request"].includes(event.kind))
        content.push(element("p", "hint", "Its frames are not in this recording."));
    for (const each of row.events)
        content.push(...partsOf(each));
    panel.replaceChildren(...content);
    panel.scrollTop = 0;
}

function verdictOf({ level, outcome }) {
    const sign = signs[level] ? `${signs[level]} ` : "";
    return element("p", `verdict ${level}`, sign, outcome);
}

function titleOf({ event, subject, form }) {
    const lane = event.lane.role === "daemon" ? "" : event.lane.title;
    const arrow = { to: `daemon → ${lane}`, from: `${lane} → daemon` }[event.direction] ?? lane;
    const what = form === "arrow" || subject.length < 120 ? subject : event.kind;
    return [arrow, what || event.kind].filter(Boolean).join(": ");
}

function whenText({ time, kind }) {
    return time ? time.replace("T", " ").replace("Z", " UTC") : kind;
}

// To what was asked, or to what came of it.
function linksOf({ partner, kind }, go) {
    if (partner === undefined)
        return [];
    const where = kind === "asked" ? "Go to the answer ↓" : "Go to where it is asked ↑";
    const button = element("button", "link", where);
    button.type = "button";
    button.addEventListener("click", () => go(partner));
    return [button];
}

function framesOf(event) {
    const frames = [...event.frames, ...(event.partner?.frames ?? [])];
    return frames.sort((a, b) => a.number - b.number);
}

const asXml = new Set(["body", "data"]);
const asBlock = new Set(["text", "got", "difference", "shown", "expected", "reason", "mistake"]);

// The members as the recording has them, the long ones below the others.
function partsOf(event) {
    const list = element("dl");
    const blocks = [element("h3", "", `The event, ${event.kind}`), list];
    for (const [name, value] of event.given) {
        const isLong = asBlock.has(name) && (value.length > 60 || value.includes("\n"));
        if (asXml.has(name))
            blocks.push(...xmlParts(event, name, value));
        else if (isLong)
            blocks.push(element("h3", "", name), textBlock(name, value));
        else if (name !== "time" && name !== "kind")
            list.append(element("dt", "", name), element("dd", "", valueText(event, name, value)));
    }
    return blocks;
}

function valueText(event, name, value) {
    if (name === "operation")
        return `${value} (${operationText(event.operation)})`;
    if (name === "status")
        return `${value} (${statusText(event.status)})`;
    return value;
}

// A request's parameters are in its frame, too.
function xmlParts(event, name, value) {
    if (name === "body" && framesOf(event).length > 0)
        return [];
    return [element("h3", "", event.kind === "frame" ? frameTitle(event) : name), prettyXml(value)];
}

function frameParts(frame) {
    return [element("h3", "", frameTitle(frame)), prettyXml(frame.body)];
}

function frameTitle({ direction, id, count, lane }) {
    return `Frame ${direction} ${lane.title}: number ${id}, ${bytes(count)}`;
}

function textBlock(name, text) {
    const block = element("pre", "plain");
    block.tabIndex = 0;
    for (const [index, line] of text.slice(0, longestXml).split("\n").entries()) {
        const sign = name === "difference" ? { "+": "got", "-": "wanted" }[line[0]] : undefined;
        block.append(index === 0 ? "" : "\n", sign ? element("span", sign, line) : line);
    }
    return block;
}
