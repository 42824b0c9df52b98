// The sequence diagram: a row for each event, time going down, and a lane for each peer. Only what
// can be seen is made: however long the recording, there are some dozens of rows in the document.

const spare = 12; // rows that are made beyond both ends of the view

class Diagram {
    constructor(scroller, choose) {
        this.scroller = scroller;
        this.heads = scroller.querySelector(".heads");
        this.layer = scroller.querySelector(".rows");
        this.lines = scroller.querySelector(".lines");
        this.choose = choose;
        this.made = new Map(); // rows in the document, with their elements
        this.chosen = null;
        this.found = new Set();
        scroller.addEventListener("scroll", () => this.renderSoon());
        new ResizeObserver(() => this.layOut()).observe(scroller);
        this.layer.addEventListener("click", event => this.clicked(event));
    }

    show(rows, lanes, spans) {
        this.rows = rows;
        this.lanes = lanes;
        this.spans = spans;
        this.tops = new Float64Array(rows.length + 1);
        for (const [index, row] of rows.entries())
            this.tops[index + 1] = this.tops[index] + heights[row.form];
        this.layOut();
    }

    // Room for the texts between the daemon and the first lane, and behind the last one; lanes
    // share the rest, and when there are many, they go on to the right.
    layOut() {
        if (this.lanes === undefined)
            return;
        const width = this.scroller.clientWidth;
        const style = getComputedStyle(this.scroller);
        const start = parseFloat(style.getPropertyValue("--start"));
        const others = this.lanes.length - 1;
        const room = between(190, (width - start) * (others < 3 ? 0.5 : 0.36), 560);
        const behind = between(120, (width - start) * 0.3, 330);
        const share = (width - start - room - behind) / Math.max(1, others - 1);
        const pitch = between(130, share, 280);
        for (const [index, lane] of this.lanes.entries())
            lane.x = start + room + (index - 1) * pitch;
        this.lanes[0].x = parseFloat(style.getPropertyValue("--daemon"));
        this.width = Math.max(width, start + room + (others - 1) * pitch + behind);
        this.isWide = this.width > 1.5 * width; // so that many a lane is out of sight
        this.heads.style.width = this.layer.style.width = `${this.width}px`;
        const view = this.scroller.clientHeight - this.heads.offsetHeight;
        this.height = Math.max(this.tops.at(-1) + 80, view);
        this.layer.style.height = `${this.height}px`;
        this.scroller.style.setProperty("--view", `${width}px`);
        for (const made of this.made.values())
            made.remove();
        this.made.clear();
        this.near = undefined;
        this.render();
    }

    renderSoon() {
        this.pending ??= requestAnimationFrame(() => {
            this.pending = undefined;
            this.render();
        });
    }

    render() {
        const top = this.scroller.scrollTop;
        this.placeHeads();
        const first = Math.max(0, this.rowAt(top) - spare);
        const bottom = top + this.scroller.clientHeight;
        const last = Math.min(this.rows.length, this.rowAt(bottom) + spare);
        this.placeRows(this.rows.slice(first, last));
        this.layer.style.setProperty("--shift", `${this.scroller.scrollLeft}px`);
        this.lines.replaceChildren(...this.makeLines(first, last));
        this.mark();
    }

    // Those that stay are not touched.
    placeRows(rows) {
        const made = new Map(rows.map(row => [row, this.made.get(row) ?? this.makeRow(row)]));
        for (const [row, each] of this.made)
            if (made.get(row) !== each)
                each.remove();
        let behind = null;
        for (const each of [...made.values()].reverse()) {
            if (each.parentNode === null)
                this.layer.insertBefore(each, behind);
            behind = each;
        }
        this.made = made;
    }

    // Of many lanes, too, only those that can be seen.
    placeHeads() {
        const near = this.lanes.filter(lane => this.isNear(lane));
        const isSame = near.length === this.near?.length &&
            near.every((lane, at) => lane === this.near[at]);
        this.near = near;
        if (!isSame)
            this.heads.replaceChildren(...near.map(makeHead));
    }

    rowAt(y) {
        let low = 0;
        for (let high = this.rows.length; low < high;) {
            const middle = (low + high) >> 1;
            if (this.tops[middle + 1] > y)
                high = middle;
            else
                low = middle + 1;
        }
        return low;
    }

    isNear(lane) {
        const left = this.scroller.scrollLeft;
        const right = left + this.scroller.clientWidth;
        return lane.role === "daemon" || (lane.x > left + 150 && lane.x < right + 200);
    }

    // A line for each lane, stronger while its peer is connected, and a bar while it is asked
    // something.
    makeLines(first, last) {
        const ends = [this.tops[first], last < this.rows.length ? this.tops[last] : this.height];
        const lines = this.near.map(lane => line(`lifeline ${lane.role}`, lane.x, ...ends));
        for (const { lane, from, to, kind } of this.spans) {
            if (to.position < first || from.position > last || !this.isNear(lane))
                continue;
            const begin = this.middleOf(Math.max(from.position, first));
            const end = this.middleOf(Math.min(to.position, last));
            lines.push(line(`${kind} ${lane.role}`, lane.x, begin, end));
        }
        return lines;
    }

    middleOf(position) {
        const form = this.rows[position]?.form;
        return this.tops[position] + (form === undefined ? 0 : arrowHeight(form));
    }

    makeRow(row) {
        const made = element("div", `row ${row.form} ${row.level}`);
        if (row.isAnswer)
            made.classList.add("answering");
        made.id = `row-${row.number}`;
        made.setAttribute("role", "option");
        made.setAttribute("aria-setsize", this.rows.length);
        made.setAttribute("aria-posinset", row.position + 1);
        made.style.top = `${this.tops[row.position]}px`;
        made.style.height = `${heights[row.form]}px`;
        made.append(element("span", "time", row.elapsed));
        const { lane } = row.event;
        if (row.form === "arrow" || row.form === "frame")
            made.append(makeArrow(row, this.lanes[0].x, lane.x));
        if (row.form === "note" || row.form === "output")
            made.append(makeDot(lane.x), makeSpace(lane.x));
        made.append(this.makeLabel(row));
        return made;
    }

    // Where lanes go on to the right, each text says whose it is.
    makeLabel(row) {
        const { lane } = row.event;
        const label = element("span", "label");
        if (this.isWide && lane.role !== "daemon")
            label.append(element("span", "peer", lane.title));
        label.append(makeSubject(row), makeOutcome(row));
        if (row.form === "note" || row.form === "output")
            label.style.setProperty("--room", `${Math.max(380, this.width - lane.x - 24)}px`);
        return label;
    }

    clicked(event) {
        const target = event.target.closest(".row");
        for (const [row, made] of this.made)
            if (made === target)
                this.choose(row);
    }

    // Which row is chosen, and which hold what is searched for.
    mark() {
        for (const [row, made] of this.made) {
            made.setAttribute("aria-selected", row === this.chosen);
            made.classList.toggle("found", this.found.has(row));
        }
        const id = this.made.get(this.chosen)?.id ?? "";
        this.layer.setAttribute("aria-activedescendant", id);
    }

    focus() {
        this.layer.focus({ preventScroll: true });
    }

    bringIntoView(row) {
        const { scroller } = this;
        const top = this.tops[row.position];
        const seen = scroller.clientHeight - this.heads.offsetHeight;
        const above = top - scroller.scrollTop;
        if (above < 20 || above + heights[row.form] > seen - 20)
            scroller.scrollTop = top - seen * 0.4;
        const { x, role } = row.event.lane;
        const aside = x - scroller.scrollLeft;
        const isAside = aside < 260 || aside > scroller.clientWidth - 100;
        if (role !== "daemon" && isAside)
            scroller.scrollLeft = x - scroller.clientWidth * 0.6;
        this.render();
    }
}

function between(least, value, most) {
    return Math.max(least, Math.min(value, most));
}

const codeForms = new Set(["command", "output"]);

function oneLine(text) {
    const first = text.slice(0, 400).split("\n", 1)[0];
    const rest = text.split("\n").length - 1;
    return rest > 0 ? `${first}  … ${rest} more ${rest === 1 ? "line" : "lines"}` : first;
}

// An arrow's line is below its text.
function arrowHeight(form) {
    return form === "arrow" ? heights.arrow - 10 : heights[form] / 2;
}

function line(className, x, top, bottom) {
    const made = element("i", className);
    made.style.left = `${x}px`;
    made.style.top = `${top}px`;
    made.style.height = `${Math.max(0, bottom - top)}px`;
    return made;
}

function makeArrow(row, daemon, peer) {
    const isFromDaemon = row.event.direction === "to" && !row.isAnswer;
    const arrow = element("i", `line ${isFromDaemon ? "right" : "left"}`);
    if (row.isAnswer || row.event.kind === "stray-answer")
        arrow.classList.add("answer");
    arrow.style.left = `calc(${daemon}px + var(--shift))`;
    arrow.style.width = `max(0px, ${peer - daemon}px - var(--shift))`;
    return arrow;
}

function makeDot(x) {
    const dot = element("i", "dot");
    dot.style.left = `${x}px`;
    return dot;
}

// A long one gives way to the outcome.
function makeSubject({ subject, isCode, form }) {
    if (subject === "")
        return "";
    const made = element("span", "subject", oneLine(subject));
    made.classList.toggle("code", Boolean(isCode) || codeForms.has(form));
    made.classList.toggle("long", subject.length > 24);
    return made;
}

// A note begins at its lane, and where that is out of sight, at the edge: the label sticks there.
function makeSpace(x) {
    const space = element("i", "space");
    space.style.width = `calc(${x}px - var(--time) + 12px)`;
    return space;
}

function makeOutcome({ outcome, level, event }) {
    const took = event.ms === undefined || event.kind !== "request" ? "" : durationText(event.ms);
    if (!outcome && !took)
        return "";
    const sign = signs[level] ? element("span", "sign", signs[level]) : null;
    return element("span", "outcome", sign, element("span", "words", oneLine(outcome)),
        took ? element("span", "took", took) : null);
}

function durationText(ms) {
    return ms < 999.5 ? `${ms.toFixed(ms < 9.95 ? 1 : 0)} ms` : `${(ms / 1000).toFixed(1)} s`;
}

function makeHead(lane) {
    const head = element("button", `head ${lane.role}`, element("span", "role", lane.role),
        element("span", "name", lane.title));
    head.type = "button";
    head.dataset.lane = lane.key;
    head.title = lane.role === "daemon" ? "All lanes" : `Only ${lane.title}`;
    head.setAttribute("aria-pressed", lane.isAlone ?? false);
    head.style.left = `${lane.x}px`;
    return head;
}
