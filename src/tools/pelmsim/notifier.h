// The socket that notifications arrive at.
#pragma once

#include "console.h"
#include "loop.h"
#include "owners.h"

#include <functional>
#include <string>
#include <vector>

namespace pelmsim {

class notifier {
public:
    notifier(event_loop& loop, console& out) : loop_(loop), out_(out) {}
    notifier(const notifier&) = delete;
    notifier& operator=(const notifier&) = delete;
    ~notifier() { close(); }

    void open(); // throws problem
    void close();

    // Stops reading, so that the queue fills up; and reads on.
    void hold() {
        held_ = true;
        loop_.change(socket_, 0);
    }
    void release() {
        held_ = false;
        loop_.change(socket_, POLLIN);
    }

    // What arrived, each as it was sent, without a zero byte at its end.
    const std::vector<std::string>& received() const { return received_; }

    std::function<std::size_t(const xmlNode*)> pass_on; // says to how many agents it went

private:
    void on_ready();
    void take(const std::string& text);

    event_loop& loop_;
    console& out_;
    int socket_ = -1;
    bool held_ = false;
    std::vector<std::string> received_;
};

} // namespace pelmsim
