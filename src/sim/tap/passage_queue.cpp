#include "tap/passage_queue.h"

#include "model/problem.h"

#include <cerrno>
#include <cstring>
#include <sys/eventfd.h>

namespace pelmsim {

passage_queue::passage_queue() : arrival_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!arrival_)
        throw problem(std::string("cannot wait for events: ") + std::strerror(errno));
}

bool passage_queue::offer(passage what) {
    {
        const std::lock_guard lock(mutex_);
        if (bytes_ + size_of(what) > most_bytes)
            return false;
    }
    push(std::move(what));
    return true;
}

void passage_queue::push(passage what) {
    {
        const std::lock_guard lock(mutex_);
        bytes_ += size_of(what);
        all_.push_back(std::move(what));
    }
    announce();
}

void passage_queue::announce() const { (void)eventfd_write(arrival_.get(), 1); }

std::deque<passage> passage_queue::take() {
    eventfd_t count = 0;
    (void)eventfd_read(arrival_.get(), &count);
    const std::lock_guard lock(mutex_);
    bytes_ = 0;
    return std::exchange(all_, {});
}

} // namespace pelmsim
