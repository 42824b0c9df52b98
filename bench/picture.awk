# Draws bars from lines of "load contestant time-of-floor time-of-xml calls peak": the time of each contestant
# for each load, of that which plain calls of libxml2 take.
BEGIN {
    title["publish"] = "a change told in 300 bytes"
    title["pull"] = "4 KiB pulled by the callback"
    title["input:1048576"] = "1 MiB handed to an operation"
    title["input:16777216"] = "16 MiB handed to an operation"
    name["plugin"] = "pelmconf"
    name["earlier"] = "pelmconf before"
    name["floor"] = "the floor: no check, no copy"
    name["copying"] = "the floor with copies"
    name["xml"] = "plain calls of libxml2"
    name["raw"] = "the same bytes alone"
    name["sdbus(bus)"] = "D-Bus by sd-bus and a daemon"
    name["libdbus(bus)"] = "D-Bus by libdbus and a daemon"
    name["zmq(ipc)"] = "ZeroMQ"
    name["sdbus(peer)"] = "sd-bus, peer to peer"
    name["libdbus(peer)"] = "libdbus, peer to peer"
    longest = 2.2 # of plain calls; what is longer is cut, with its figure at the end
}
!($1 in title) { next }
$1 != last { line(28); text(10, y, "bold", title[$1]); last = $1 }
{
    line(18)
    width = $4 < longest ? $4 * 200 : longest * 200
    kind = $2 == "plugin" ? "#1a6faf" : $2 ~ /floor|copying|xml|raw|earlier/ ? "#8a9ba8" : "#c9a26b"
    text(190, y, "end", $2 in name ? name[$2] : $2)
    shapes = shapes sprintf("<rect x=\"200\" y=\"%d\" width=\"%.1f\" height=\"12\" fill=\"%s\"/>\n", y - 10, width, kind)
    text(206 + width, y, "", sprintf("%.2f", $4))
}
function line(height) { y += height }
function text(x, y, kind, words) {
    shapes = shapes sprintf("<text x=\"%.1f\" y=\"%d\"%s>%s</text>\n", x, y,
        kind == "bold" ? " font-weight=\"bold\"" : kind == "end" ? " text-anchor=\"end\"" : "", words)
}
END {
    printf "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"720\" height=\"%d\" font-family=\"sans-serif\" font-size=\"12\">\n", y + 34
    print "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>"
    printf "%s<line x1=\"400\" y1=\"8\" x2=\"400\" y2=\"%d\" stroke=\"#444\" stroke-dasharray=\"3 3\"/>\n", shapes, y + 6
    printf "<text x=\"400\" y=\"%d\" text-anchor=\"middle\">time, of that of plain calls of libxml2</text>\n</svg>\n", y + 24
}
