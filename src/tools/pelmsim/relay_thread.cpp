#include "relay_thread.h"

#include "model/problem.h"

#include <cerrno>
#include <cstring>
#include <sys/eventfd.h>

namespace pelmsim {
namespace {

constexpr milliseconds moment_to_end{2000};
constexpr milliseconds long_time{60000};

} // namespace

relay_thread::relay_thread(const clock_face& time, passage_queue& told, tapped_places& at)
    : at_(at),
      loop_(time),
      ending_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      relays_(loop_, time, told, at.of_daemon(), [&at] { at.uncover_deserted(); }) {
    if (!ending_)
        throw problem(std::string("cannot wait for events: ") + std::strerror(errno));
    loop_.watch(ending_.get(), POLLIN, [this](short) {
        loop_.forget(ending_.get());
        loop_.stop();
    });
    relays_.open();
    at.watch(loop_);
    at.cover_all();
}

relay_thread::~relay_thread() {
    stop();
    at_.watch_no_more();
}

void relay_thread::stop() {
    if (!thread_.joinable())
        return;
    (void)eventfd_write(ending_.get(), 1);
    thread_.join();
}

void relay_thread::run() {
    try {
        for (;;)
            serve_once(long_time);
    } catch (const stopped&) {
        loop_.resume();
    }
    const moment end = loop_.now() + moment_to_end;
    while (!relays_.is_idle() && loop_.now() < end)
        serve_once(std::chrono::ceil<milliseconds>(end - loop_.now()));
}

// There may be no memory for one thing, and for the next one again.
void relay_thread::serve_once(milliseconds limit) {
    try {
        loop_.run_once(limit);
    } catch (const std::exception&) {
        return;
    }
}

} // namespace pelmsim
