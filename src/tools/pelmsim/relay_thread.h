// The thread that relays: it waits for nobody who reads along.
#pragma once

#include "tap/relays.h"
#include "tapped_places.h"

#include <thread>

namespace pelmsim {

class relay_thread {
public:
    // The sockets are there from now on. Throws problem.
    relay_thread(const clock_face& time, passage_queue& told, tapped_places& at);
    relay_thread(const relay_thread&) = delete;
    relay_thread& operator=(const relay_thread&) = delete;
    ~relay_thread();

    void start() {
        thread_ = std::thread([this] { run(); });
    }

    // Ends it once nothing is under way any more, or after a moment.
    void stop();

private:
    void run();
    void serve_once(milliseconds limit);

    tapped_places& at_;
    event_loop loop_;
    unique_fd ending_;
    relays relays_;
    std::thread thread_;
};

} // namespace pelmsim
