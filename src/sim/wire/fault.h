// What is to go wrong with a frame, or from it on.
#pragma once

#include "journal/clock.h"

#include <optional>
#include <string>

namespace pelmsim {

enum class fault_kind {
    closed,         // the line goes down in place of the frame, and nobody is let in for a time
    deaf,           // behind the frame nothing is read for a time
    delay,          // the frame, and what is behind it, goes out later
    error,          // the answer is one
    hang_up_after,  // once the frame has been read
    hang_up_before, // in its place
    hang_up_within, // behind half of it
    joined,         // a kick-off stands behind the answer, in one piece with it
    nothing,        // is sent
    own_id,         // a kick-off in front of the answer has the id that is waited for
    restart,        // of the daemon, in place of the frame
    wrong_id,       // is on it
};

struct fault {
    fault_kind kind;
    std::optional<milliseconds> time = {}; // how long; without it, until told otherwise
    int code = 0;                          // of an error
    std::string text = {};
};

// A frame that is about to go out, as faults are chosen by.
struct outgoing_frame {
    bool is_answer;
    std::string method; // of the request, also of one that is answered
    std::string id;
    std::string name = {};  // of the peer, where it is only about to introduce itself
    bool is_served = false; // the peer takes requests, or will once it has read this
};

} // namespace pelmsim
