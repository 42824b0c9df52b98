// What a plugin and the daemon ask each other.
#pragma once

#include "tap/conversation.h"

#include <map>

namespace pelmsim {

class plugin_conversation final : public conversation {
public:
    plugin_conversation(event_journal& events, shared_room& room, pid_t pid)
        : conversation(events, room, pid), asked_(room), own_(room) {}
    plugin_conversation(const plugin_conversation&) = delete;
    plugin_conversation& operator=(const plugin_conversation&) = delete;
    ~plugin_conversation() override { room().change(registered_, 0); }

private:
    peer who() const override { return {role::plugin, name_, pid(), !name_.empty()}; }
    void on_frame(direction way, unique_node body, moment at) override;
    void leave_open() override;
    void forget_open() override;

    void asked(event its, xmlNode* params, moment at);
    void asks(event its, const xmlNode* rpc, const xmlNode* params, moment at);
    void answers(unique_node reply, moment at);
    void is_answered(unique_node reply, moment at);
    void report_own(const open_request& which, const outcome* result, moment at);
    void has_registered(const xmlNode* params, std::size_t bytes);
    void describe(event& its, const xmlNode* params) const;

    std::size_t registered_ = 0;                // bytes that tell of what follows
    std::string name_;                          // once it is registered
    std::map<std::string, std::string> served_; // the paths of callbacks
    open_requests asked_;                       // of it
    open_requests own_;                         // by it
};

} // namespace pelmsim
