// The agents' side: their connections, sessions and subscriptions.
#pragma once

#include "wire/connection.h"

#include <vector>

namespace pelmsim {

class agent_table;

class agent : public connection {
public:
    agent(event_loop& loop, event_journal& events, unique_fd socket, agent_table& all)
        : connection(loop, events, std::move(socket)), all_(all) {}

    peer who() const override;

    std::string user; // empty until it opens a session
    std::string parent_pid;
    unsigned session = 0;
    bool subscribed = false;

protected:
    void on_arrival() override;
    void on_frame(unique_node body) override;
    void on_unreadable(const defect& what) override { complain(what); }
    void on_closed() override;

private:
    unique_node answer(const xmlNode* rpc);
    unique_node run(const xmlNode* operation);

    agent_table& all_;
};

class agent_table {
public:
    agent_table(event_loop& loop, event_journal& events) : loop_(loop), events_(events) {}
    agent_table(const agent_table&) = delete;
    agent_table& operator=(const agent_table&) = delete;
    ~agent_table() { close(); }

    std::function<void(pid_t)> heard_from = [](pid_t) {}; // before what a peer sent is read

    void open(); // throws problem
    void close();

    const std::vector<std::shared_ptr<agent>>& all() const { return agents_; }

    // Passes a notification on to those who subscribed; says to how many.
    std::size_t notify(const xmlNode* data);

    void gone(const agent& which);
    unsigned next_session() { return ++last_session_; }

private:
    void welcome(unique_fd socket);

    event_loop& loop_;
    event_journal& events_;
    int socket_ = -1;
    unsigned last_session_ = 0;
    std::vector<std::shared_ptr<agent>> agents_;
};

} // namespace pelmsim
