// A recording, line by line. It may be any file: what cannot be read of it is said, and skipped.
#pragma once

#include "recording/recorded_event.h"

#include <istream>

namespace pelmsim {

class recording_reader {
public:
    explicit recording_reader(std::istream& in) : in_(in) {}
    recording_reader(const recording_reader&) = delete;
    recording_reader& operator=(const recording_reader&) = delete;

    // Goes on to the next line that is an event, or that is of the recording itself; false when
    // there is none.
    bool next();

    const event* what() const { return event_ ? &event_->what() : nullptr; }
    const json_members& members() const { return members_; } // of the line

    // How many lines could not be read so far, and of the first of them the number and the reason.
    int unreadable() const { return unreadable_; }
    const std::string& first_unreadable() const { return first_unreadable_; }

private:
    void take(const std::string& line);

    std::istream& in_;
    int number_ = 0;
    json_members members_;
    std::optional<recorded_event> event_;
    bool is_something_ = false;
    int unreadable_ = 0;
    std::string first_unreadable_;
};

} // namespace pelmsim
