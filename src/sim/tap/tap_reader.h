// Reads along what relays carry, and reports it as events.
#pragma once

#include "journal/journal.h"
#include "tap/conversation.h"
#include "tap/passage_queue.h"
#include "wire/loop.h"

#include <map>
#include <memory>

namespace pelmsim {

class tap_reader {
public:
    // Calls back before what a process has sent is told of.
    tap_reader(event_loop& loop, event_journal& events, passage_queue& from,
               std::function<void(pid_t)> heard_from);
    tap_reader(const tap_reader&) = delete;
    tap_reader& operator=(const tap_reader&) = delete;
    ~tap_reader();

    // Reads what is there by now.
    void finish();

private:
    struct open_one {
        pid_t pid;
        std::unique_ptr<conversation> its;
    };

    void read_some(std::size_t most);
    void read_one(const passage& next);
    void begin(const passage& next);
    void notified(const passage& next);
    void read_guarded(const passage& next);

    event_loop& loop_;
    event_journal& events_;
    passage_queue& from_;
    std::function<void(pid_t)> heard_from_;
    std::deque<passage> unread_;
    shared_room room_;
    std::map<unsigned, open_one> open_;
};

} // namespace pelmsim
