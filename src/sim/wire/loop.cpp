#include "wire/loop.h"

#include "model/problem.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <sys/epoll.h>

namespace pelmsim {
namespace {

constexpr int most_at_once = 64;
constexpr unsigned generation_bits = 32;
constexpr milliseconds until_next_look{200};

// The kernel says the events of epoll with the bits of poll.
static_assert(EPOLLIN == POLLIN && EPOLLOUT == POLLOUT && EPOLLRDHUP == POLLRDHUP &&
              EPOLLHUP == POLLHUP && EPOLLERR == POLLERR);

epoll_event subscription(int fd, unsigned generation, short events) {
    epoll_event wanted{};
    wanted.events = static_cast<std::uint32_t>(events);
    wanted.data.u64 = std::uint64_t{static_cast<std::uint32_t>(fd)} << generation_bits | generation;
    return wanted;
}

int milliseconds_until(moment end, moment now) {
    const auto left = std::chrono::ceil<milliseconds>(end - now).count();
    return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
}

} // namespace

timer& timer::operator=(timer&& other) noexcept {
    cancel();
    loop_ = std::exchange(other.loop_, nullptr);
    due_ = other.due_;
    id_ = other.id_;
    return *this;
}

void timer::cancel() {
    if (event_loop* const loop = std::exchange(loop_, nullptr); loop != nullptr)
        loop->timers_.erase({due_, id_});
}

event_loop::event_loop(const clock_face& time) : time_(time), epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    if (!epoll_)
        throw problem(std::string("cannot wait for events: ") + std::strerror(errno));
}

event_loop::entry* event_loop::find(int fd) {
    const auto at = static_cast<std::size_t>(fd);
    return fd >= 0 && at < entries_.size() && entries_[at].call ? &entries_[at] : nullptr;
}

void event_loop::watch(int fd, short events, handler call) {
    const auto at = static_cast<std::size_t>(fd);
    if (at >= entries_.size())
        entries_.resize(at + 1);
    entries_[at] = {++last_generation_, std::move(call)};
    epoll_event wanted = subscription(fd, last_generation_, events);
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &wanted) != 0) {
        entries_[at] = {};
        throw problem(std::string("cannot wait for events: ") + std::strerror(errno));
    }
}

void event_loop::change(int fd, short events) {
    const entry* const found = find(fd);
    if (found == nullptr)
        return;
    epoll_event wanted = subscription(fd, found->generation, events);
    (void)epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &wanted); // it is there, and so cannot fail
}

void event_loop::forget(int fd) {
    entry* const found = find(fd);
    if (found == nullptr)
        return;
    (void)epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
    *found = {};
}

timer event_loop::after(milliseconds time, std::function<void()> call) {
    const moment due = now() + time;
    timers_.emplace(timer_key(due, ++last_timer_), std::move(call));
    return {*this, due, last_timer_};
}

bool event_loop::run_until(const std::function<bool()>& done, milliseconds limit) {
    const moment end = now() + limit;
    cancelled_ = false;
    while (!done()) {
        const auto left = end - now();
        if (cancelled_ || left <= milliseconds::zero())
            return false;
        run_once(std::chrono::ceil<milliseconds>(left));
    }
    return true;
}

bool event_loop::run_until(const std::function<bool()>& done, milliseconds limit,
                           const std::function<bool()>& is_suspended) {
    bool is_done = run_until(done, limit);
    while (!is_done && !cancelled_ && is_suspended()) {
        while (!is_done && !cancelled_ && is_suspended())
            is_done = run_until(done, until_next_look); // nothing tells of its end
        if (!is_done && !cancelled_)
            is_done = run_until(done, limit);
    }
    return is_done;
}

void event_loop::run_once(milliseconds limit) {
    const moment begin = now();
    moment end = stopping_ ? begin : begin + limit; // it may have been stopped between two rounds
    if (!timers_.empty())
        end = std::min(end, timers_.begin()->first.first);
    std::array<epoll_event, most_at_once> ready{};
    const int count =
        epoll_wait(epoll_.get(), ready.data(), most_at_once, milliseconds_until(end, begin));
    // In the order of the descriptors, so that one run is like the next.
    const std::span those(ready.data(), static_cast<std::size_t>(std::max(count, 0)));
    std::ranges::sort(those, {}, [](const epoll_event& each) { return each.data.u64; });
    for (const epoll_event& each : those)
        serve(static_cast<int>(each.data.u64 >> generation_bits),
              static_cast<unsigned>(each.data.u64), static_cast<short>(each.events));
    run_timers();
    if (stopping_)
        throw stopped();
}

void event_loop::serve(int fd, unsigned generation, short events) {
    const entry* const found = find(fd);
    if (found == nullptr || found->generation != generation)
        return;
    const handler call = found->call; // it may forget itself
    call(events);
}

void event_loop::run_timers() {
    while (!timers_.empty() && timers_.begin()->first.first <= now()) {
        const auto due = timers_.extract(timers_.begin());
        due.mapped()();
    }
}

} // namespace pelmsim
