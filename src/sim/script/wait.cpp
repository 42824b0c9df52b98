#include "script/wait.h"

#include "journal/wording.h"
#include "model/problem.h"
#include "script/session.h"
#include "script/suggest.h"
#include "script/syntax.h"
#include "script/wait_reasons.h"

#include <algorithm>

namespace pelmsim {
namespace {

using condition = std::function<bool()>;

condition registered(session& on, const std::string& name) {
    return [&on, name] { return on.daemon.plugins().find(name) != nullptr; };
}

condition active(session& on, const std::string& name) {
    return [&on, name] {
        const auto found = on.daemon.plugins().find(name);
        return found != nullptr && found->is_active();
    };
}

condition closed(session& on, const std::string& name) {
    return [&on, name] { return on.daemon.plugins().has_gone(name); };
}

process& program_to_end(session& on, const std::string& name) {
    return on.program(name, [](const process& each) { return !each.waited_for; });
}

condition exited(session& on, const std::string& name) {
    return [&which = program_to_end(on, name)] { return which.status.has_value(); };
}

condition output(session& on, const std::string& text) {
    if (text.empty()) // which is in every output
        throw problem("a text is missing");
    return [&on, text] {
        const std::size_t forgotten = on.programs.forgotten();
        const std::size_t seen = std::max(on.waited.output, forgotten);
        const std::size_t found = on.programs.output().find(text, seen - forgotten);
        if (found != std::string::npos)
            on.waited.output = forgotten + found + text.size();
        return found != std::string::npos;
    };
}

condition notification(session& on, const std::string& text) {
    return [&on, text] {
        const notifier& all = on.daemon.notifier();
        std::size_t& seen = on.waited.notifications;
        seen = std::max(seen, all.dropped());
        while (seen < all.arrived())
            if (all.kept()[seen++ - all.dropped()].find(text) != std::string::npos)
                return true;
        return false;
    };
}

constexpr struct {
    const char* name;
    condition (*make)(session& on, const std::string& name);
} kinds[] = {
    {"active", active},
    {"closed", closed},
    {"exited", exited},
    {"output", output},
    {"notification", notification},
    {"registered", registered},
};

condition condition_of(const std::string& what, session& on, const std::string& name) {
    const auto* const kind =
        std::ranges::find_if(kinds, [&](const auto& each) { return what == each.name; });
    if (kind == std::end(kinds))
        throw problem("\"" + what + "\" is nothing to wait for" +
                      suggestion(what, first_keywords(wait_arguments)));
    return kind->make(on, name);
}

} // namespace

ending wait(session& on, line_reader& words) {
    const std::string what = words.word("what to wait for");
    const std::string name =
        what == "notification" ? words.word_or("") : words.word("what to wait for");
    const condition done = condition_of(what, on, name);
    const bool is_own = !words.at_end();
    const milliseconds limit = words.time_or(on.daemon.publisher().answer_limit());
    words.finish();
    const std::size_t dropped = on.daemon.notifier().dropped();
    const bool missed = what == "notification" && dropped > on.waited.notifications;
    const bool came = on.wait_until(done, limit);
    if (!came && on.loop.was_cancelled())
        throw problem("the wait was cancelled");
    const std::string expected = what + " " + name;
    on.expected.check({.holds = came,
                       .expected = expected,
                       .got = came ? expected
                                   : "nothing within " + std::to_string(limit.count()) + " ms" +
                                         (missed ? ", but some were dropped before" : ""),
                       .is_beginning = what == "registered" || what == "active"});
    if (!came)
        on.events.report({.kind = event_kind::explanation,
                          .text = "the limit, " + time_in_words(limit) +
                                  (is_own ? ", stands in the line\n"
                                          : ", is that of --timeout or the command timeout\n") +
                                  explain_wait(on, what, name)});
    if (!came || what != "exited")
        return {};
    process& ended = program_to_end(on, name);
    ended.waited_for = true;
    return {ended.end()};
}

} // namespace pelmsim
