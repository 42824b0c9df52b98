// Expectations of what came of a command beside its outcome: requests of plugins, notifications,
// lines of the log, warnings. All of them look at the present step.
#pragma once

#include "script/expectations.h"
#include "script/line_reader.h"

#include <functional>
#include <optional>

namespace pelmsim {

class session;

// How an expectation is meant.
struct manner {
    std::optional<milliseconds> within = {}; // how long it may take
    bool is_of_absence = false;              // it holds when there is no such thing

    std::string limit() const { // " within 50 ms", or nothing
        return within ? " within " + std::to_string(within->count()) + " ms" : "";
    }
};

// Whether that is such a kind of expectation.
bool is_seen(const std::string& kind);

// Reads the rest of the line, and waits where it may take a time.
finding look_for(session& on, const std::string& kind, line_reader& words, const manner& how);

// Serves until that holds, and looks again and again, as nothing tells of all that it may be about;
// says whether it does. Throws problem when that is cancelled.
bool comes_within(session& on, milliseconds limit, const std::function<bool()>& is_there);

} // namespace pelmsim
