// What passes through the relays, on its way to the thread that reads along.
#pragma once

#include "journal/event.h"
#include "model/owners.h"

#include <deque>
#include <mutex>
#include <string>

namespace pelmsim {

enum class passing { opened, bytes, datagram, ended, told };

struct passage {
    passing what;
    unsigned connection = 0;
    peer who = {}; // of one that is opened
    direction way = direction::none;
    std::string bytes = {};
    std::size_t lost = 0; // bytes before these for which there was no room
    moment at = {};
    bool by_daemon = false;                     // has one ended
    event said = {.kind = event_kind::refused}; // that is told, as it stands
};

// Who relays never waits for who reads: when there is no room, it goes on without.
class passage_queue {
public:
    static constexpr std::size_t most_bytes = std::size_t{16} * 1024 * 1024;

    passage_queue(); // throws problem
    passage_queue(const passage_queue&) = delete;
    passage_queue& operator=(const passage_queue&) = delete;

    // False when there is no room for it.
    [[nodiscard]] bool offer(passage what);

    // Takes it in any case: for the end of what was taken before.
    void push(passage what);

    // All that is there. The descriptor is readable when there may be some, or by announcement.
    std::deque<passage> take();
    int arrival() const { return arrival_.get(); }
    void announce() const;

private:
    static std::size_t size_of(const passage& what) { return sizeof what + what.bytes.size(); }

    std::mutex mutex_;
    std::deque<passage> all_;
    std::size_t bytes_ = 0;
    unique_fd arrival_;
};

} // namespace pelmsim
