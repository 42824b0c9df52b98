// The agents that are connected.
#pragma once

#include "daemon/agent.h"
#include "daemon/peer_table.h"

namespace pelmsim {

class agent_table final : public peer_table<agent> {
public:
    agent_table(event_loop& loop, event_journal& events, surroundings around,
                const arrangements& arranged);

    std::size_t subscribed() const; // how many are

    // Passes a notification on to those who subscribed; says to how many.
    std::size_t notify(const xmlNode* data);

private:
    unsigned next_session() override { return ++last_session_; }

    const arranged_answer* arranged(const std::string& operation) const override {
        return arranged_.find(operation);
    }

    const arrangements& arranged_;
    unsigned last_session_ = 0;
};

} // namespace pelmsim
