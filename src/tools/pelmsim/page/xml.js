// XML as it is read best: indented and in colours, made of texts only, so that it remains text.

const longestXml = 100_000;
const deepestIndent = 30;

function element(name, className, ...children) {
    const made = document.createElement(name);
    if (className)
        made.className = className;
    made.append(...children.filter(child => child !== null && child !== ""));
    return made;
}

function prettyXml(text) {
    const block = element("pre", "xml");
    block.tabIndex = 0; // a long line is scrolled by keys, too
    const shown = text.slice(0, longestXml);
    for (const [index, line] of linesOfXml(shown).entries())
        block.append(index === 0 ? "" : "\n", ...line);
    if (shown.length < text.length)
        block.append(`\n… ${text.length - shown.length} more characters stand in the recording`);
    return block;
}

// A comment, a section, a tag, a text, or else what is none. What may hold a "<" is bounded, so that
// no text takes a time that grows with the square of its length.
const pieceOfXml = /<!--[^]{0,999}?-->|<!\[CDATA\[[^]{0,999}?\]\]>|<[^<>]*>|[^<]+|</g;

// An element that holds a text alone stays in one line, and the text as it is.
function linesOfXml(text) {
    const pieces = text.match(pieceOfXml) ?? [];
    const lines = [];
    let depth = 0;
    for (let at = 0; at < pieces.length; ++at) {
        const isEnd = pieces[at].startsWith("</");
        depth -= isEnd && depth > 0 ? 1 : 0;
        const line = ["  ".repeat(Math.min(depth, deepestIndent)), ...coloured(pieces[at])];
        if (opens(pieces[at])) {
            const count = at + 1 < pieces.length ? piecesInLine(pieces, at) : 0;
            line.push(...pieces.slice(at + 1, at + 1 + count).flatMap(coloured));
            depth += count === 0 ? 1 : 0;
            at += count;
        }
        lines.push(line);
    }
    return lines;
}

function opens(piece) {
    return /^<[^/!?]/.test(piece) && !piece.endsWith("/>");
}

// How many of those behind a start tag stand in its line: a text and the end tag, the end tag, or
// none.
function piecesInLine(pieces, at) {
    const hasText = !pieces[at + 1].startsWith("<");
    const end = pieces[at + (hasText ? 2 : 1)] ?? "";
    if (!end.startsWith("</"))
        return 0;
    return hasText ? 2 : 1;
}

function coloured(piece) {
    if (!piece.startsWith("<"))
        return [element("span", "text", piece)];
    const parts = /^(<[/?!]?)([^\s/>]*)([^]*?)(\/?>)$/.exec(piece);
    if (parts === null)
        return [piece];
    return [parts[1], element("span", "tag", parts[2]), ...attributes(parts[3]), parts[4]];
}

function attributes(text) {
    const parts = text.split(/("[^"]*")/);
    return parts.map(part => part.startsWith('"') ? element("span", "value", part) : part);
}
