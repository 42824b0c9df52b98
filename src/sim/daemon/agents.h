// The agents' side: their connections, sessions and subscriptions.
#pragma once

#include "wire/connection.h"

#include <vector>

namespace pelmsim {

class agent : public connection {
public:
    agent(event_loop& loop, console& out, unique_fd socket,
          std::function<void(agent&, bool by_peer)> gone)
        : connection(loop, out, std::move(socket)), gone_(std::move(gone)) {}

    std::string label() const override;

    std::string user; // empty until it opens a session
    std::string parent_pid;
    unsigned session = 0;
    bool subscribed = false;

protected:
    void on_frame(unique_node body) override;
    void on_unreadable(const std::string& why) override { complain(why); }
    void on_closed(bool by_peer) override { gone_(*this, by_peer); }

private:
    unique_node answer(const xmlNode* rpc);
    unique_node run(const xmlNode* operation);

    std::function<void(agent&, bool by_peer)> gone_;
};

class agent_table {
public:
    agent_table(event_loop& loop, console& out) : loop_(loop), out_(out) {}
    agent_table(const agent_table&) = delete;
    agent_table& operator=(const agent_table&) = delete;
    ~agent_table() { close(); }

    void open(); // throws problem
    void close();

    const std::vector<std::shared_ptr<agent>>& all() const { return agents_; }

    // Passes a notification on to those who subscribed; says to how many.
    std::size_t notify(const xmlNode* data);

private:
    void welcome(unique_fd socket);

    event_loop& loop_;
    console& out_;
    int socket_ = -1;
    std::vector<std::shared_ptr<agent>> agents_;
};

} // namespace pelmsim
