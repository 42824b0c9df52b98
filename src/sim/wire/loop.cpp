#include "wire/loop.h"

#include <algorithm>
#include <vector>

namespace pelmsim {

void event_loop::watch(int fd, short events, handler call) {
    entries_[fd] = {events, ++generation_, std::move(call)};
}

void event_loop::change(int fd, short events) {
    if (const auto found = entries_.find(fd); found != entries_.end())
        found->second.events = events;
}

void event_loop::forget(int fd) { entries_.erase(fd); }

void event_loop::pause(int fd, milliseconds time) {
    if (const auto found = entries_.find(fd); found != entries_.end())
        found->second.paused_until = std::chrono::steady_clock::now() + time;
}

bool event_loop::run_until(const std::function<bool()>& done, milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        const auto left = end - std::chrono::steady_clock::now();
        if (left <= milliseconds::zero())
            return false;
        run_once(std::chrono::ceil<milliseconds>(left));
    }
    return true;
}

void event_loop::run_once(milliseconds limit) {
    std::vector<pollfd> waiting;
    std::vector<unsigned> generations;
    const auto now = std::chrono::steady_clock::now();
    for (const auto& [fd, watched] : entries_) {
        if (watched.paused_until > now) {
            limit = std::min(limit, std::chrono::ceil<milliseconds>(watched.paused_until - now));
            continue;
        }
        waiting.push_back({fd, watched.events, 0});
        generations.push_back(watched.generation);
    }
    (void)poll(waiting.data(), waiting.size(), static_cast<int>(limit.count()));
    for (std::size_t i = 0; i < waiting.size(); ++i) {
        const auto found = entries_.find(waiting[i].fd);
        if (waiting[i].revents == 0 || found == entries_.end() ||
            found->second.generation != generations[i])
            continue;
        const handler call = found->second.call; // it may forget itself
        call(waiting[i].revents);
    }
    if (stopping_)
        throw stopped();
}

} // namespace pelmsim
