// What went to and fro between pelmsim and its peers, and what was dropped by which rule.
#pragma once

#include "journal/journal.h"

#include <deque>
#include <string>
#include <vector>

namespace pelmsim {

// One thing that happened, as a line shows it.
struct timeline_entry {
    wall_time time;
    event_kind kind;
    pid_t pid;          // of the peer
    direction way;      // of a request, told apart by its id
    std::string id;     // of a request
    const char* arrow;  // between pelmsim, on the left, and the peer
    std::string peer;   // its name
    std::string what;   // that lines are folded by
    std::string detail; // behind it, which is another one each time
};

class timeline final : event_sink {
public:
    explicit timeline(event_journal& events) : events_(events) { events_.add(*this); }
    timeline(const timeline&) = delete;
    timeline& operator=(const timeline&) = delete;
    ~timeline() { events_.remove(*this); }

    // The last lines, so many, or a few more: those that repeat themselves are one, or a few, with
    // how often they came, and stay together.
    std::string lines(std::size_t most) const;

private:
    void take(const event& what) override;
    void keep(timeline_entry entry);
    std::vector<std::string> groups() const; // lines that stay together
    std::string rule_for_stray(const event& answer) const;

    event_journal& events_;
    std::deque<timeline_entry> kept_;
    std::optional<wall_time> begin_; // of all
    std::size_t dropped_ = 0;        // from the beginning
};

} // namespace pelmsim
