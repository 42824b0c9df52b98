// The one loop that waits for all sockets, children, signals and the prompt.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <poll.h>

namespace pelmsim {

using std::chrono::milliseconds;

// Thrown out of every wait when the program is asked to end.
struct stopped {};

class event_loop {
public:
    using handler = std::function<void(short events)>;

    // Calls the handler whenever the descriptor is ready for these events, has hung up or failed.
    void watch(int fd, short events, handler call);
    void change(int fd, short events);
    void forget(int fd);

    // Leaves the descriptor alone for so long, whatever comes.
    void pause(int fd, milliseconds time);

    void stop() { stopping_ = true; }
    void resume() { stopping_ = false; }

    // Serves events until done() holds, for at most so long; says whether it does.
    bool run_until(const std::function<bool()>& done, milliseconds limit);

    // Serves events until stopped, or one round of them.
    void run_once(milliseconds limit);

private:
    struct entry {
        short events;
        unsigned generation; // tells a descriptor from an earlier one of the same number
        handler call;
        std::chrono::steady_clock::time_point paused_until{};
    };

    std::map<int, entry> entries_;
    unsigned generation_ = 0;
    bool stopping_ = false;
};

} // namespace pelmsim
