// What a script expects: what that is compared with, and how often it was wrong.
#pragma once

#include "journal/journal.h"

#include <algorithm>
#include <deque>
#include <optional>
#include <string>
#include <utility>

namespace pelmsim {

// How the initial configuration of a plugin ended.
struct recovery_result {
    std::string plugin;
    outcome how;
    bool is_looked_at = false;
    bool is_of_step = true; // the present one
};

// Whether an expectation holds, in words.
struct finding {
    bool holds;
    std::string expected;
    std::string got;
    std::string difference = {}; // of XML, in lines
    bool is_beginning = false;   // that somebody is there, which proves little once it holds
};

class expectations {
public:
    explicit expectations(const event_journal& events) : events_(events) {}

    // Where the lines stand that come now: "demo.sim:12: ", or nowhere at the prompt.
    void stand_at(std::string place) { place_ = std::move(place); }
    const std::string& place() const { return place_; }

    // Counts and reports it.
    void check(finding what);

    // What was checked last, unless it has been taken.
    std::optional<finding> take_finding() { return std::exchange(finding_, std::nullopt); }

    // One that was disturbed on purpose need not be looked at.
    void recovered(const std::string& plugin, outcome how, bool is_disturbed = false) {
        how.data.reset(); // nobody looks at it, and it may be much
        how.text.resize(std::min(how.text.size(), longest_text));
        recoveries_.push_back({plugin, std::move(how), is_disturbed});
        if (recoveries_.size() > most_recoveries)
            recoveries_.pop_front();
    }
    recovery_result* recovery_of(const std::string& plugin); // the last one, or null
    void begin_step();

    // To be called in the end: those that went wrong and were not looked at count, too.
    void check_recoveries();
    int failures() const { return failures_; }
    int count() const { return count_; } // of all, but those beginnings that held

    // How the last command ended that had an outcome, and how long it took.
    const outcome& last() const { return last_; }
    moment::duration took() const { return took_; }
    void look_at(outcome what, moment::duration took = {}) {
        last_ = std::move(what);
        took_ = took;
    }

private:
    static constexpr std::size_t most_recoveries = 1024;
    static constexpr std::size_t longest_text = 16384; // of one

    const event_journal& events_;
    std::string place_;
    std::deque<recovery_result> recoveries_;
    outcome last_ = outcome::unheard("no command had an outcome yet");
    moment::duration took_{};
    std::optional<finding> finding_;
    int failures_ = 0;
    int count_ = 0;
};

} // namespace pelmsim
