// The socket that notifications arrive at.
#pragma once

#include "journal/journal.h"
#include "model/owners.h"
#include "wire/loop.h"

#include <deque>
#include <functional>
#include <string>

namespace pelmsim {

class notifier {
public:
    notifier(event_loop& loop, event_journal& events) : loop_(loop), events_(events) {}
    notifier(const notifier&) = delete;
    notifier& operator=(const notifier&) = delete;
    ~notifier() { close(); }

    void open(); // throws problem
    void close();

    // Stops reading, so that the queue fills up; and reads on.
    void hold() {
        held_ = true;
        listen();
    }
    void release() {
        held_ = false;
        listen();
    }

    // The last ones that arrived, each as it was sent, without a zero byte at its end; and how many
    // came before those.
    const std::deque<std::string>& kept() const { return kept_; }
    std::size_t dropped() const { return dropped_; }

    std::function<std::size_t(const xmlNode*)> pass_on; // says to how many agents it went

private:
    void listen();
    void on_ready();
    void keep(const std::string& text);
    void take(const std::string& text);

    event_loop& loop_;
    event_journal& events_;
    int socket_ = -1;
    bool held_ = false;
    timer next_try_;
    std::deque<std::string> kept_;
    std::size_t kept_bytes_ = 0;
    std::size_t dropped_ = 0;
};

} // namespace pelmsim
