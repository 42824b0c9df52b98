// The one loop that waits for all sockets, children, signals, timers and the prompt.
#pragma once

#include "journal/clock.h"
#include "model/owners.h"

#include <functional>
#include <map>
#include <poll.h>
#include <utility>
#include <vector>

namespace pelmsim {

class event_loop;

// Thrown out of every wait when the program is asked to end.
struct stopped {};

// What is still to happen; goes with this object, which the loop has to outlive.
class timer {
public:
    timer() = default;
    timer(timer&& other) noexcept
        : loop_(std::exchange(other.loop_, nullptr)), due_(other.due_), id_(other.id_) {}
    timer& operator=(timer&& other) noexcept;
    ~timer() { cancel(); }

    void cancel();

private:
    friend class event_loop;
    timer(event_loop& loop, moment due, unsigned id) : loop_(&loop), due_(due), id_(id) {}

    event_loop* loop_ = nullptr;
    moment due_;
    unsigned id_ = 0;
};

class event_loop {
public:
    using handler = std::function<void(short events)>;

    // Throws problem when the system has no descriptor for it.
    explicit event_loop(const clock_face& time);
    event_loop(const event_loop&) = delete;
    event_loop& operator=(const event_loop&) = delete;
    ~event_loop() = default;

    // Calls the handler whenever the descriptor is ready for these events of poll(), has hung up or
    // failed. It is to be forgotten before it is closed. Throws problem when it cannot be watched.
    void watch(int fd, short events, handler call);
    void change(int fd, short events);
    void forget(int fd);

    // Calls once, when so much time has gone by, unless the timer has gone before.
    [[nodiscard]] timer after(milliseconds time, std::function<void()> call);

    void stop() { stopping_ = true; }
    void resume() { stopping_ = false; }

    // Serves events until done() holds, for at most so long; says whether it does.
    bool run_until(const std::function<bool()>& done, milliseconds limit);

    // The same, but when the time is up and the limit is suspended, waits until it is no more, and
    // then as long again.
    bool run_until(const std::function<bool()>& done, milliseconds limit,
                   const std::function<bool()>& is_suspended);

    // Ends the wait at hand, as if its time were up; and whether that is how the last one ended.
    void cancel() { cancelled_ = true; }
    bool was_cancelled() const { return cancelled_; }

    // Serves events until stopped, or one round of them.
    void run_once(milliseconds limit);

    moment now() const { return time_.now(); }

private:
    friend class timer;
    struct entry {
        unsigned generation = 0; // tells a descriptor from an earlier one of the same number
        handler call = {};       // none while the number is not watched
    };
    using timer_key = std::pair<moment, unsigned>;

    entry* find(int fd);
    void serve(int fd, unsigned generation, short events);
    void run_timers();

    const clock_face& time_;
    unique_fd epoll_;
    std::vector<entry> entries_; // by descriptor
    unsigned last_generation_ = 0;
    std::map<timer_key, std::function<void()>> timers_;
    unsigned last_timer_ = 0;
    bool stopping_ = false;
    bool cancelled_ = false;
};

} // namespace pelmsim
