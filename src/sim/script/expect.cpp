#include "script/expect.h"

#include "model/problem.h"
#include "script/session.h"

#include <algorithm>

namespace pelmsim {
namespace {

std::string in_quotes(const std::string& text) { return "\"" + text + "\""; }

finding ok(const session& on, line_reader&) {
    const outcome& last = on.expected.last();
    return {last.is_ok(), "ok", last.describe()};
}

finding error(const session& on, line_reader& words) {
    const outcome& last = on.expected.last();
    if (words.at_end())
        return {last.result == verdict::error, "error", last.describe()};
    const int code = words.number_or(-1);
    const std::string text = words.rest();
    const bool same_text = text.empty() || text == last.text;
    return {last.result == verdict::error && code == last.code && same_text,
            outcome::error(code, text).describe(), last.describe()};
}

finding no_answer(const session& on, line_reader& words) {
    const outcome& last = on.expected.last();
    const std::string why = words.rest();
    const bool same_reason = last.text.find(why) != std::string::npos;
    return {last.result == verdict::no_answer && same_reason, outcome::no_answer(why).describe(),
            last.describe()};
}

finding xml(const session& on, line_reader& words) {
    const std::string wanted = compact(parse_nodes(words.rest()).get());
    const std::string came = on.expected.last().xml();
    return {wanted == came, in_quotes(wanted), in_quotes(came)};
}

finding contains(const session& on, line_reader& words) {
    const outcome& last = on.expected.last();
    const std::string text = words.rest();
    const std::string all = last.shown + last.xml();
    return {all.find(text) != std::string::npos, "contains " + in_quotes(text), in_quotes(all)};
}

finding lacks(const session& on, line_reader& words) {
    const outcome& last = on.expected.last();
    const std::string text = words.rest();
    const std::string all = last.shown + last.xml();
    return {all.find(text) == std::string::npos && !last.is_cut, "lacks " + in_quotes(text),
            in_quotes(all)};
}

constexpr struct {
    const char* name;
    finding (*judge)(const session& on, line_reader& words);
} kinds[] = {
    {"contains", contains},   {"error", error}, {"lacks", lacks},
    {"no-answer", no_answer}, {"ok", ok},       {"xml", xml},
};

} // namespace

ending expect(session& on, line_reader& words) {
    const std::string what = words.word("what to expect");
    const auto* const kind =
        std::ranges::find_if(kinds, [&](const auto& each) { return what == each.name; });
    if (kind == std::end(kinds))
        throw problem("\"" + what + "\" is nothing to expect");
    on.expected.check(kind->judge(on, words));
    return {};
}

} // namespace pelmsim
