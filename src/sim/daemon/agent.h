// One agent that is connected: its session, its subscription and what it is answered.
#pragma once

#include "daemon/arrangements.h"
#include "daemon/reply.h"
#include "wire/connection.h"

#include <string>

namespace pelmsim {

// The daemon's side of an agent.
class agent_owner : public connection_owner {
public:
    virtual unsigned next_session() = 0;
    virtual const arranged_answer* arranged(const std::string& operation) const = 0; // or null

protected:
    ~agent_owner() = default;
};

class agent : public connection {
public:
    using owner_type = agent_owner;

    agent(event_journal& events, std::unique_ptr<faulty_channel> line, agent_owner& owner)
        : connection(events, std::move(line), owner), owner_(owner) {}

    peer who() const override;
    unsigned session() const { return session_; } // 0 until it opens one
    const std::string& parent_pid() const { return parent_pid_; }
    bool is_subscribed() const { return subscribed_; }

    static bool may_ask_for(const std::string& operation);

protected:
    void on_frame(unique_node body) override;
    void on_unreadable(const defect& what) override { complain(what); }

private:
    std::optional<reply> answer(const xmlNode* operation, const std::string& id,
                                const arranged_answer* instead);
    reply create_session(const xmlNode* operation);
    reply create_subscription(const xmlNode* operation);
    reply get_capability(const xmlNode* operation);

    using server = reply (agent::*)(const xmlNode* operation);
    static server server_of(const std::string& operation); // or null

    agent_owner& owner_;
    std::string user_;
    std::string parent_pid_;
    unsigned session_ = 0;
    bool subscribed_ = false;
};

} // namespace pelmsim
