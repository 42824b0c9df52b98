// A loop of Asio. It has no hook before it sleeps, so whoever has made a request outside of callbacks,
// or has closed the plugin there, calls loop_asked().
#include "loop.h"

#include <asio.hpp>
#include <chrono>
#include <csignal>
#include <optional>
#include <pelmconf/adapters/watch.h>

namespace {

struct event_loop {
    asio::io_context context;
    asio::steady_timer timer{context};
    asio::signal_set terminating{context};
    std::optional<asio::posix::stream_descriptor> ready; // the watch's; none without a plugin
    pelmconf_watch watch{};
    unsigned attached = 0; // how often
};

event_loop& loop() {
    static event_loop one;
    return one;
}

void release(void* /*adapter*/) {
    (void)loop().ready->release(); // the watch closes it
    loop().ready.reset();
    pelmconf_watch_close(&loop().watch);
}

void wait_for_daemon() {
    loop().ready->async_wait(
        asio::posix::stream_descriptor::wait_read, [](std::error_code stopped) {
            if (stopped)
                return;
            const unsigned before = loop().attached;
            pelmconf_watch_step(&loop().watch);
            loop_asked(); // a callback may have closed the plugin, or registered it anew
            if (loop().ready && loop().attached == before)
                wait_for_daemon();
        });
}

} // namespace

int loop_run(void (*begin)(), void (*end)()) {
    loop().terminating.add(SIGTERM);
    loop().terminating.async_wait([end](std::error_code stopped, int /*number*/) {
        if (!stopped)
            end();
    });
    begin();
    loop().context.run();
    return 0;
}

int loop_attach(void (*on_lost)()) {
    if (loop().ready)
        release(nullptr); // a callback has closed the plugin, and registers it anew
    if (pelmconf_watch_open(&loop().watch, on_lost, release, nullptr) < 0)
        return -1;
    ++loop().attached;
    loop().ready.emplace(loop().context, loop().watch.fd);
    wait_for_daemon();
    return 0;
}

void loop_asked() {
    while (loop().ready && pelmconf_watch_is_due(&loop().watch))
        pelmconf_watch_step(&loop().watch);
}

void loop_after(int ms, void (*then)()) {
    loop().timer.expires_after(std::chrono::milliseconds{ms});
    loop().timer.async_wait([then](std::error_code stopped) {
        if (!stopped)
            then();
    });
}

void loop_stop() { loop().context.stop(); }
