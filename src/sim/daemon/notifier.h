// The socket that notifications arrive at: they are kept, and passed on to agents.
#pragma once

#include "daemon/agents.h"
#include "wire/datagram_receiver.h"

#include <deque>

namespace pelmsim {

class notifier final : datagram_owner {
public:
    notifier(event_loop& loop, event_journal& events, agent_table& agents);
    notifier(const notifier&) = delete;
    notifier& operator=(const notifier&) = delete;
    ~notifier() { close(); }

    void open(); // throws problem
    void close();

    // Stops reading, so that the queue fills up; and reads on.
    void hold() { arriving_.hold(true); }
    void release() { arriving_.hold(false); }

    // The last ones that arrived, each as it was sent, without a zero byte at its end; and how many
    // came before those.
    const std::deque<std::string>& kept() const { return kept_; }
    std::size_t dropped() const { return dropped_; }
    std::size_t arrived() const { return dropped_ + kept_.size(); } // in all

private:
    void take(std::string text) override;
    void failed(const char* why) override;
    void keep(const std::string& text);

    event_journal& events_;
    agent_table& agents_;
    endpoint at_;
    datagram_receiver arriving_;
    std::deque<std::string> kept_;
    std::size_t kept_bytes_ = 0;
    std::size_t dropped_ = 0;
};

} // namespace pelmsim
