// What a plugin or an agent and the daemon say to each other, as events.
#pragma once

#include "journal/journal.h"
#include "tap/frame_follower.h"
#include "tap/open_requests.h"

namespace pelmsim {

class conversation {
public:
    conversation(event_journal& events, shared_room& room, pid_t pid);
    conversation(const conversation&) = delete;
    conversation& operator=(const conversation&) = delete;
    virtual ~conversation() = default;

    void begin() { events_.report({.kind = event_kind::connected, .who = who()}); }

    // Bytes that passed then, behind so many that nobody has read.
    void passed(direction way, std::string_view bytes, std::size_t lost, moment at);

    void end(bool by_daemon);

protected:
    virtual peer who() const = 0;
    virtual void on_frame(direction way, unique_node body, moment at) = 0;

    // Nothing more comes of what is open: it has no answer, or nobody knows of one.
    virtual void leave_open() = 0;
    virtual void forget_open() = 0;

    event_journal& events() { return events_; }
    shared_room& room() { return room_; }
    pid_t pid() const { return pid_; }

    // An answer that nothing open belongs to; of one that may have been asked for unread, nothing
    // is told.
    void report_stray(direction way, const std::string& id, const open_requests& open);

    // Each direction's first one is told of, and in the end how many more there were.
    void complain(direction way, const defect& what);

private:
    struct half {
        half(conversation& whole, direction its);
        direction way;
        frame_follower frames;
        std::size_t defects = 0;
    };

    half& of(direction way) { return way == direction::to_peer ? to_peer_ : from_peer_; }
    void take(direction way, arrival frame);
    void report_unreadable(direction way, const defect& what);

    event_journal& events_;
    shared_room& room_;
    pid_t pid_;
    moment now_;
    bool misses_some_ = false; // of what the two have understood
    half from_peer_{*this, direction::from_peer};
    half to_peer_{*this, direction::to_peer};
};

} // namespace pelmsim
