// One agent that is connected: its session, its subscription and what it is answered.
#pragma once

#include "daemon/reply.h"
#include "wire/connection.h"

#include <string>

namespace pelmsim {

// The daemon's side of an agent.
class agent_owner : public connection_owner {
public:
    virtual unsigned next_session() = 0;

protected:
    ~agent_owner() = default;
};

class agent : public connection {
public:
    using owner_type = agent_owner;

    agent(event_journal& events, std::unique_ptr<channel> line, agent_owner& owner)
        : connection(events, std::move(line), owner), owner_(owner) {}

    peer who() const override;
    unsigned session() const { return session_; } // 0 until it opens one
    const std::string& parent_pid() const { return parent_pid_; }
    bool is_subscribed() const { return subscribed_; }

protected:
    void on_frame(unique_node body) override;
    void on_unreadable(const defect& what) override { complain(what); }

private:
    reply answer(const xmlNode* operation, const std::string& id);
    reply run(const xmlNode* operation);

    agent_owner& owner_;
    std::string user_;
    std::string parent_pid_;
    unsigned session_ = 0;
    bool subscribed_ = false;
};

} // namespace pelmsim
