#include "script/expect.h"

#include "model/difference.h"
#include "model/problem.h"
#include "script/expect_seen.h"
#include "script/session.h"
#include "script/suggest.h"
#include "script/syntax.h"

#include <algorithm>
#include <sys/wait.h>

namespace pelmsim {
namespace {

std::string in_quotes(const std::string& text) { return "\"" + text + "\""; }

finding ok(const outcome& last, line_reader&) { return {last.is_ok(), "ok", last.describe()}; }

finding error(const outcome& last, line_reader& words) {
    if (words.at_end())
        return {last.result == verdict::error, "error", last.describe()};
    const int code = words.number("the error's code");
    const std::string text = words.rest();
    const bool same_text = text.empty() || text == last.text;
    return {last.result == verdict::error && code == last.code && same_text,
            outcome::error(code, text).describe(), last.describe()};
}

// A part of the reason will do.
finding for_reason(const outcome& wanted, const outcome& last) {
    const bool same_reason = last.text.find(wanted.text) != std::string::npos;
    return {last.result == wanted.result && same_reason, wanted.describe(), last.describe()};
}

finding no_answer(const outcome& last, line_reader& words) {
    return for_reason(outcome::no_answer(words.rest()), last);
}

finding status(const outcome& last, line_reader& words) {
    const int wanted = words.number_or(-1);
    if (wanted < 0)
        throw problem("an exit status is missing");
    return {last.result == verdict::ended && WIFEXITED(last.code) &&
                WEXITSTATUS(last.code) == wanted,
            "status " + std::to_string(wanted), last.describe()};
}

finding unheard(const outcome& last, line_reader& words) {
    return for_reason(outcome::unheard(words.rest()), last);
}

finding xml(const outcome& last, line_reader& words) {
    const unique_nodes nodes = parse_nodes(words.rest());
    const std::string wanted = compact(nodes.get());
    if (!last.is_ok())
        return {false, in_quotes(wanted), last.describe()};
    const std::string came = last.xml();
    if (wanted == came)
        return {true, in_quotes(wanted), in_quotes(came)};
    return {false, in_quotes(wanted), in_quotes(came),
            describe_difference(nodes.get(), last.data.get())};
}

// Nothing at all is in every text.
std::string text_to_find(line_reader& words) {
    std::string text = words.rest();
    if (text.empty())
        throw problem("a text is missing");
    return text;
}

finding contains(const outcome& last, line_reader& words) {
    const std::string text = text_to_find(words);
    const std::string all = last.shown + last.xml();
    return {all.find(text) != std::string::npos, "contains " + in_quotes(text), in_quotes(all)};
}

finding lacks(const outcome& last, line_reader& words) {
    const std::string text = text_to_find(words);
    const std::string all = last.shown + last.xml();
    if (last.result == verdict::unheard) // nothing can be said of what is not there at all
        return {false, "lacks " + in_quotes(text), last.describe()};
    return {all.find(text) == std::string::npos && !last.is_cut, "lacks " + in_quotes(text),
            in_quotes(all)};
}

constexpr struct {
    const char* name;
    finding (*judge)(const outcome& last, line_reader& words);
} kinds[] = {
    {"contains", contains},   {"error", error}, {"lacks", lacks},
    {"no-answer", no_answer}, {"ok", ok},       {"status", status},
    {"unheard", unheard},     {"xml", xml},
};

finding judge(const std::string& what, const outcome& last, line_reader& words) {
    const auto* const kind =
        std::ranges::find_if(kinds, [&](const auto& each) { return what == each.name; });
    if (kind == std::end(kinds))
        throw problem("\"" + what + "\" is nothing to expect" +
                      suggestion(what, first_keywords(expect_arguments)));
    finding made = kind->judge(last, words);
    words.finish();
    return made;
}

// Of the last command, which is to have taken no longer than that.
finding last_one(session& on, const std::string& what, line_reader& words, const manner& how) {
    finding made = judge(what, on.expected.last(), words);
    made.expected += how.limit();
    const auto took = std::chrono::ceil<milliseconds>(on.expected.took());
    if (!made.holds || !how.within || took <= *how.within)
        return made;
    return {false, made.expected,
            on.expected.last().describe() + " after " + std::to_string(took.count()) + " ms"};
}

// Of the initial configuration of a plugin. One that may take a time is of this step.
finding initial_one(session& on, line_reader& words, const manner& how) {
    const std::string plugin = words.word("a plugin");
    const std::string what = words.word("what to expect");
    const std::size_t begin = words.place();
    finding made = judge(what, outcome(), words); // the line is read before anything is waited for
    recovery_result* found = on.expected.recovery_of(plugin);
    const auto has_come = [&] {
        found = on.expected.recovery_of(plugin);
        return found != nullptr && found->is_of_step;
    };
    if (how.within && !comes_within(on, *how.within, has_come))
        found = nullptr;
    if (found != nullptr) {
        words.return_to(begin);
        made = judge(what, found->how, words);
        found->is_looked_at = true;
    }
    made.expected = "recovery " + plugin + " " + made.expected + how.limit();
    return found == nullptr ? finding{false, made.expected, "none"} : made;
}

} // namespace

ending expect(session& on, line_reader& words) {
    manner how;
    std::string what = words.word("what to expect");
    if (what == "within") {
        const int limit = words.number_or(-1);
        if (limit < 0)
            throw problem("a number of milliseconds is missing");
        how.within = milliseconds(limit);
        what = words.word("what to expect");
    }
    if (what == "not") {
        how.is_of_absence = true;
        what = words.word("what not to expect");
    }
    const bool is_of_step = is_seen(what);
    if (how.is_of_absence && !is_of_step)
        throw problem("\"" + what + "\" cannot be expected not: say what is to come instead");
    if (is_of_step)
        on.expected.check(look_for(on, what, words, how));
    else
        on.expected.check(what == "recovery" ? initial_one(on, words, how)
                                             : last_one(on, what, words, how));
    return {};
}

} // namespace pelmsim
