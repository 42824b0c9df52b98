// An event as a line of JSON tells of it, with all that an event borrows.
#pragma once

#include "journal/event.h"
#include "recording/json_members.h"

namespace pelmsim {

class recorded_event {
public:
    // Throws problem when it is no event. XML in it that cannot be read is left out.
    explicit recorded_event(const json_members& members);
    recorded_event(const recorded_event&) = delete;
    recorded_event& operator=(const recorded_event&) = delete;

    const event& what() const { return what_; }

private:
    event what_;
    std::optional<outcome> result_;
    unique_nodes body_;
};

// Whether the members are of a kind of event that is known here.
bool is_known_event(const json_members& members);

// Whether it is there and true; its text, or nothing.
bool is_true(const json_members& members, const char* name);
std::string text_in(const json_members& members, const char* name);

} // namespace pelmsim
