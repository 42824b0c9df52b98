// Scripts: their lines, what they wait for and what they expect.
#include "script/desk.h"

#include "model/problem.h"

#include <algorithm>
#include <sstream>
#include <sys/wait.h>

namespace pelmsim {
namespace {

constexpr std::chrono::hours forever{24 * 365};

// Finds text behind what was found before, and moves that place behind it.
bool find_on(const std::string& text, const std::string& among, std::size_t& seen) {
    const std::size_t found = among.find(text, seen);
    if (found != std::string::npos)
        seen = found + text.size();
    return found != std::string::npos;
}

std::string in_quotes(const std::string& text) { return "\"" + text + "\""; }

} // namespace

void desk::serve_until(const std::function<bool()>& done) { (void)wait_for(done, forever); }

bool desk::wait_for(const std::function<bool()>& done, milliseconds limit) {
    return loop_.run_until(
        [&] {
            publisher_.recover();
            return done();
        },
        limit);
}

void desk::run_script(const std::string& name, const std::string& text) {
    directory_ = std::filesystem::path(name).parent_path();
    std::istringstream lines(text);
    std::string line;
    std::string more;
    for (int number = 1; !quit_ && std::getline(lines, more); ++number) {
        if (line.empty())
            place_ = name + ":" + std::to_string(number) + ": ";
        line += more;
        if (line.ends_with('\\')) {
            line.back() = ' ';
            continue;
        }
        try {
            run(std::exchange(line, {}));
        } catch (const problem& why) {
            throw problem(place_ + why.what());
        }
    }
}

void desk::check(bool holds, const std::string& expected, const std::string& got) {
    failures_ += holds ? 0 : 1;
    events_.report({.kind = event_kind::expectation,
                    .text = expected,
                    .place = place_,
                    .got = got,
                    .good = holds});
}

std::function<bool()> desk::condition(const std::string& what, line_reader& words) {
    if (what == "notification")
        return [this, text = words.word_or("")] {
            const notifier& all = daemon_.notifications();
            notifications_seen_ = std::max(notifications_seen_, all.dropped());
            while (notifications_seen_ < all.dropped() + all.kept().size())
                if (all.kept()[notifications_seen_++ - all.dropped()].find(text) !=
                    std::string::npos)
                    return true;
            return false;
        };
    const std::string name = words.word("what to wait for");
    if (what == "output")
        return [this, name] { return find_on(name, processes_.output(), output_seen_); };
    if (what == "exited")
        return [&which = process_named(name)] { return which.status.has_value(); };
    if (what == "registered")
        return [this, name] { return daemon_.find(name) != nullptr; };
    if (what == "closed")
        return [this, name] { return daemon_.find(name) == nullptr; };
    if (what == "active")
        return [this, name] { return daemon_.find(name) != nullptr && daemon_.find(name)->active; };
    throw problem("\"" + what + "\" is nothing to wait for");
}

void desk::wait(line_reader& words) {
    const std::string what = words.word("what to wait for");
    line_reader target = words;
    const auto done = condition(what, words);
    const std::string name = target.word_or("");
    const milliseconds limit = words.time_or(daemon_.answer_limit());
    const std::size_t dropped = daemon_.notifications().dropped();
    const bool missed = what == "notification" && dropped > notifications_seen_;
    const bool came = wait_for(done, limit);
    check(came, what + " " + name,
          "nothing within " + std::to_string(limit.count()) + " ms" +
              (missed ? ", but some were dropped before" : ""));
    if (!came || what != "exited")
        return;
    process& ended = process_named(name);
    ended.expected = true;
    const int status = ended.status.value_or(0);
    last_ = status == 0 ? outcome{}
                        : outcome::error(WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                                         describe_status(status));
}

void desk::expect(line_reader& words) {
    const std::string what = words.word("what to expect");
    const std::string got = last_.describe();
    if (what == "ok") {
        check(last_.is_ok(), what, got);
    } else if (what == "error") {
        const bool any_code = words.at_end();
        const int code = words.number_or(-1);
        const std::string text = words.rest();
        check(last_.result == verdict::error && (any_code || code == last_.code) &&
                  (text.empty() || text == last_.text),
              any_code ? what : outcome::error(code, text).describe(), got);
    } else if (what == "no-answer") {
        const std::string why = words.rest();
        check(last_.result == verdict::no_answer && last_.text.find(why) != std::string::npos,
              outcome::no_answer(why).describe(), got);
    } else if (what == "xml") {
        const std::string xml = compact(parse_nodes(words.rest()).get());
        check(xml == last_.xml(), in_quotes(xml), in_quotes(last_.xml()));
    } else if (what == "contains" || what == "lacks") {
        const std::string text = words.rest();
        const std::string all = last_.shown + last_.xml();
        const bool found = all.find(text) != std::string::npos;
        check(what == "contains" ? found : !found && !last_.is_cut, what + " " + in_quotes(text),
              in_quotes(all));
    } else {
        throw problem("\"" + what + "\" is nothing to expect");
    }
}

} // namespace pelmsim
