// What may go wrong on purpose, and what of it is to, with which of the next frames.
#pragma once

#include "daemon/arrangements.h"
#include "journal/journal.h"
#include "wire/fault.h"

#include <cstdint>
#include <deque>
#include <span>
#include <vector>

namespace pelmsim {

// A row of the menu.
struct fault_row {
    fault_kind kind;
    const char* name;
    const char* arguments; // "", "MS", "[MS]" or "CODE TEXT"
    bool of_answers;
    bool of_requests;
    bool of_agents;
    const char* purpose;
};

std::span<const fault_row>
all_faults(); // in the order of their kinds, which is that of their names
const fault_row* find_fault(const std::string& name); // or null
const fault_row& row_of(fault_kind kind);

// As it is ordered: "delay 500", "error 5 not now".
std::string fault_text(const fault& what);

// What the request gets for an answer, where that is at fault.
std::optional<arranged_answer> instead_of_answer(const std::optional<fault>& planted);

// Which frames a fault is for. What is empty may be anything.
struct fault_target {
    enum class part { any, answer, request };

    part which = part::any;
    std::string method = {};
    std::string name = {}; // of a plugin, or the user of an agent
};

struct armed_fault {
    fault what;
    fault_target at = {};
    int times = 1;
    int skipped = 0;      // so many frames that suit go by first
    bool in_turn = false; // it is not looked at before those of this kind that were armed earlier
    int unsuited = 0;     // frames in a row that it could not strike in its turn
};

class armed_faults {
public:
    explicit armed_faults(const event_journal& events) : events_(events) {}

    void arm(armed_fault which) { armed_.push_back(std::move(which)); }

    // So many, of any kind: the same ones for a seed, on any machine.
    void arm_chaos(std::uint64_t seed, int count);

    void disarm() { armed_.clear(); }
    const std::deque<armed_fault>& armed() const { return armed_; }

    // The first that is for this frame, which it is then used up for; an event says so.
    std::optional<fault> strike(const peer& who, const outgoing_frame& frame);
    std::size_t struck() const { return struck_; } // how often any of them has

private:
    void pass_turn();

    const event_journal& events_;
    std::deque<armed_fault> armed_;
    std::size_t frames_ = 0; // that went out
    std::size_t struck_ = 0;
};

} // namespace pelmsim
