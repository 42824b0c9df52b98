// Carries bytes between two sockets, both ways, and tells of what passes.
#pragma once

#include "journal/event.h"
#include "model/owners.h"
#include "wire/loop.h"

#include <string>
#include <string_view>

namespace pelmsim {

class relay;

// Who keeps a relay.
class relay_owner {
public:
    virtual void passed(direction way, std::string_view bytes) = 0;
    virtual void ended(bool by_daemon) = 0; // it may go within

protected:
    ~relay_owner() = default;
};

// What one side says is read as soon as the other has taken what came before, and no sooner: who
// writes faster has to wait, as without the relay. Each side sees a hang-up of the other, of one
// direction or of both, once it has what was said before.
class relay {
public:
    static constexpr std::size_t most_held = 65536; // in each direction

    // Both are connected, and non-blocking.
    relay(event_loop& loop, unique_fd peer, unique_fd daemon, relay_owner& owner);
    relay(const relay&) = delete;
    relay& operator=(const relay&) = delete;
    ~relay();

    void start();

private:
    struct side {
        unique_fd socket;
        short watched = 0;       // events that are waited for
        std::string unsent = {}; // to it
        std::size_t written = 0; // of that
        bool has_ended = false;  // nothing more comes from it
        bool is_deaf = false;    // it takes nothing more
        bool is_gone = false;    // both, though what it said may still be unread
    };

    void on_ready_guarded(side& at, short events);
    void on_ready(side& at, short events);
    void carry(side& from, side& to, direction way);
    static bool write_out(side& to, side& from);
    static void go_deaf(side& to, side& from);
    static bool is_done(const side& from, const side& to) { return to.is_deaf || from.has_ended; }
    void wait_for(side& at, const side& other);

    event_loop& loop_;
    side peer_;
    side daemon_;
    relay_owner& owner_;
    const side* first_to_end_ = nullptr;
};

} // namespace pelmsim
