// What an agent asks the daemon.
#pragma once

#include "tap/conversation.h"

namespace pelmsim {

class agent_conversation final : public conversation {
public:
    agent_conversation(event_journal& events, shared_room& room, pid_t pid)
        : conversation(events, room, pid), own_(room) {}

private:
    peer who() const override { return {role::agent, user_, pid(), is_introduced_}; }
    void on_frame(direction way, unique_node body, moment at) override;
    void leave_open() override;
    void forget_open() override { own_.clear(); }

    void asks(const xmlNode* rpc, moment at);
    void is_answered(const xmlNode* reply, moment at);
    void report(const open_request& which, const xmlNode* answer, moment at);

    std::string user_;
    bool is_introduced_ = false;
    open_requests own_;
};

} // namespace pelmsim
