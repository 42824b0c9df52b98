// The warnings of a run, each once.
#pragma once

#include "journal/journal.h"
#include "model/store.h"
#include "script/log_watch.h"
#include "script/process_watch.h"

#include <set>
#include <span>
#include <string>
#include <vector>

namespace pelmsim {

struct given_warning {
    std::string who;
    std::string text;
    bool is_looked_at = false; // by an expectation
};

class warnings final : event_sink {
public:
    static constexpr std::size_t most_given = 1000; // names may be anything

    // Warns within the report of what it warns of: who prints should hear of that before.
    warnings(event_loop& loop, event_journal& events, const store& trees,
             process_watch::holders_of holders);
    warnings(const warnings&) = delete;
    warnings& operator=(const warnings&) = delete;
    ~warnings() { events_.remove(*this); }

    void begin_step() { before_step_ = given_.size(); }

    // Those of the present step, and of the whole run.
    std::span<given_warning> of_step() { return std::span(given_).subspan(before_step_); }
    const std::vector<given_warning>& all() const { return given_; }
    bool is_full() const { return given_.size() == most_given; } // there may have been more

    // To be called before everybody is hung up on in the end.
    void look_a_last_time() {
        processes_.look_at_inactive();
        log_.look();
    }

    // To be called before they are looked at.
    void look_at_log() { log_.look(); }

private:
    void take(const event& what) override;
    void take_named(const event& what);
    void give(const peer& who, const warning& what);

    event_journal& events_;
    const store& trees_;
    process_watch processes_;
    log_watch log_;
    std::set<std::string> known_;
    std::vector<given_warning> given_;
    std::size_t before_step_ = 0;
};

} // namespace pelmsim
