// The page as a whole: what is shown of the recording, and how one moves in it.

const find = selector => document.querySelector(selector);
const events = readEvents(find("#recording").textContent);
const allLanes = assignLanes(events);
attachFrames(events);
attachAnswers(events);
const rows = makeRows(events);
const spans = makeSpans(rows);
const rowOf = new Map(rows.flatMap(row => row.events.map(event => [event, row])));
const seen = { frames: false, lane: null, rows: [], troubles: [], found: [] };
const diagram = new Diagram(find("#diagram"), row => choose(row));

nameAll();
tellWhole();
refresh();
listen();

function nameAll() {
    for (const [number, event] of events.entries())
        event.number = number;
    const start = events.find(event => !Number.isNaN(event.at))?.at;
    for (const [number, row] of rows.entries()) {
        row.number = number;
        row.elapsed = Number.isNaN(row.event.at) ? "" : ((row.event.at - start) / 1000).toFixed(3);
    }
    const namesakes = Map.groupBy(allLanes, lane => lane.name);
    for (const lane of allLanes)
        lane.title = titleOfLane(lane, namesakes.get(lane.name).length > 1);
}

// Of two agents of one user, each has its process behind the name.
function titleOfLane({ role, name, pid }, isShared) {
    if (role === "daemon")
        return "daemon";
    const process = pid ? `pid ${pid}` : "datagrams";
    return isShared && name ? `${name}, ${process}` : name || process;
}

function tellWhole() {
    const times = events.map(event => event.at).filter(at => !Number.isNaN(at));
    const whole = find("#whole");
    whole.textContent = count(events.length, "event");
    if (times.length === 0)
        return;
    const start = new Date(times[0]).toISOString().slice(0, 19).replace("T", " ");
    const length = durationText(times.at(-1) - times[0]);
    whole.textContent = `${start} UTC, ${count(events.length, "event")} in ${length}`;
    document.title = `pelmsim ${start}`;
}

function count(number, what) {
    return `${number.toLocaleString("en")} ${what}${number === 1 ? "" : "s"}`;
}

function refresh() {
    seen.rows = visibleRows(rows, seen);
    seen.troubles = seen.rows.filter(row => row.isTrouble);
    for (const lane of allLanes)
        lane.isAlone = lane === seen.lane;
    const isShown = lane => lane.role === "daemon" || seen.lane === null || lane.isAlone;
    const lanes = allLanes.filter(isShown);
    diagram.show(seen.rows, lanes, spans.filter(span => lanes.includes(span.lane)));
    find("#empty").hidden = seen.rows.length > 0;
    search();
    tellTroubles();
    drawOverview();
}

function choose(row) {
    diagram.chosen = row;
    diagram.bringIntoView(row);
    document.body.classList.add("detailed");
    showDetails(find("#details-content"), row, event => choose(rowOf.get(event)));
    tellTroubles();
    tellFound();
}

function close() {
    diagram.chosen = null;
    document.body.classList.remove("detailed");
    diagram.render();
    diagram.focus();
}

// The next of some rows behind the chosen one, or before it; round again from the end.
function step(among, forward) {
    if (among.length === 0)
        return;
    const here = diagram.chosen?.position ?? (forward ? -1 : Infinity);
    if (forward)
        choose(among.find(row => row.position > here) ?? among[0]);
    else
        choose(among.findLast(row => row.position < here) ?? among.at(-1));
}

function tellTroubles() {
    const { troubles } = seen;
    const at = troubles.indexOf(diagram.chosen);
    const all = troubles.length === 0 ? "No trouble" : count(troubles.length, "trouble");
    find("#troubles").textContent = at < 0 ? all : `${at + 1} of ${all}`;
    for (const id of ["#first", "#previous", "#next"])
        find(id).disabled = troubles.length === 0;
    find("#trouble").classList.toggle("none", troubles.length === 0);
}

function search() {
    const words = find("#search").value.trim().toLowerCase();
    seen.found = words === "" ? [] : seen.rows.filter(row => textOfRow(row).includes(words));
    diagram.found = new Set(seen.found);
    diagram.mark();
    tellFound();
}

function tellFound() {
    const at = seen.found.indexOf(diagram.chosen);
    const isSearching = find("#search").value.trim() !== "";
    const all = isSearching ? `${seen.found.length}` : "";
    find("#found").textContent = at < 0 ? all : `${at + 1} of ${all}`;
}

// Where in the whole recording trouble is; those that are too near to each other share a mark.
function drawOverview() {
    const marks = new Map();
    for (const row of seen.troubles) {
        const place = Math.round(diagram.tops[row.position] / diagram.tops.at(-1) * 400) / 4;
        const mark = element("i", row.level);
        mark.style.top = `${place}%`;
        marks.set(place, mark);
    }
    find("#overview").replaceChildren(...marks.values());
}

function showLane(key) {
    const lane = allLanes.find(each => each.key === key);
    seen.lane = lane.role === "daemon" || lane === seen.lane ? null : lane;
    refresh();
    if (diagram.chosen !== null)
        diagram.bringIntoView(diagram.chosen);
}

function showFrames(wanted) {
    seen.frames = find("#frames").checked = wanted;
    refresh();
    if (diagram.chosen !== null)
        diagram.bringIntoView(diagram.chosen);
}

function switchTheme() {
    const { dataset } = document.documentElement;
    const systems = matchMedia("(prefers-color-scheme: dark)").matches ? "dark" : "light";
    dataset.theme = (dataset.theme ?? systems) === "dark" ? "light" : "dark";
}

function listen() {
    const clicks = {
        "#first": () => seen.troubles.length > 0 && choose(seen.troubles[0]),
        "#previous": () => step(seen.troubles, false),
        "#next": () => step(seen.troubles, true),
        "#theme": switchTheme,
        "#close": close,
    };
    for (const [id, act] of Object.entries(clicks))
        find(id).addEventListener("click", act);
    find("#frames").addEventListener("change", event => showFrames(event.target.checked));
    find(".heads").addEventListener("click", ({ target }) => {
        const head = target.closest(".head");
        if (head !== null)
            showLane(head.dataset.lane);
    });
    find("#search").addEventListener("input", search);
    find("#search").addEventListener("keydown", searchKey);
    find("#overview").addEventListener("click", goToHeight);
    document.addEventListener("keydown", pageKey);
}

function goToHeight({ clientY, currentTarget }) {
    const { top, height } = currentTarget.getBoundingClientRect();
    const { scroller, tops } = diagram;
    scroller.scrollTop = (clientY - top) / height * tops.at(-1) - scroller.clientHeight / 2;
}

function searchKey(event) {
    if (event.key === "Enter")
        step(seen.found, !event.shiftKey);
    if (event.key !== "Escape")
        return;
    event.target.value = "";
    search();
    diagram.focus();
}

const keys = {
    "/": () => find("#search").focus(),
    "t": () => step(seen.troubles, true),
    "T": () => step(seen.troubles, false),
    "f": () => showFrames(!seen.frames),
    "d": switchTheme,
    "Escape": close,
    "ArrowDown": () => step(seen.rows, true),
    "ArrowUp": () => step(seen.rows, false),
    "Home": () => seen.rows.length > 0 && choose(seen.rows[0]),
    "End": () => seen.rows.length > 0 && choose(seen.rows.at(-1)),
};

// Letters are keys everywhere but where one writes; arrows move in the diagram alone.
function pageKey(event) {
    const { key, target } = event;
    const isMove = /^(Arrow|Home|End)/.test(key);
    const isElsewhere = isMove && target !== diagram.layer && target !== document.body;
    const isOthers = event.ctrlKey || event.metaKey || event.altKey || !Object.hasOwn(keys, key);
    if (target === find("#search") || isElsewhere || isOthers)
        return;
    event.preventDefault();
    keys[key]();
}
