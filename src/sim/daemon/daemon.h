// The daemon itself: its endpoints, the plugins that are connected and what it answers them.
#pragma once

#include "daemon/agents.h"
#include "daemon/notifier.h"
#include "daemon/plugin.h"
#include "model/store.h"

#include <deque>
#include <map>

namespace pelmsim {

// What a plugin's request of one method gets instead of the usual answer.
struct arranged_answer {
    bool silence; // none at all
    int code;     // otherwise an error
    std::string text;
};

class service final : public request_server {
public:
    service(event_loop& loop, event_journal& events, store& trees);
    service(const service&) = delete;
    service& operator=(const service&) = delete;
    virtual ~service();

    // Opens the sockets at the library's places. Throws problem when a daemon listens there already.
    void open();

    // Hangs up on everybody and removes the sockets.
    void close();

    const std::vector<std::shared_ptr<plugin>>& plugins() const { return plugins_; }
    std::shared_ptr<plugin> find(const std::string& name) const; // registered, or null

    // Activations that want the configuration published since last asked for: the plugin, and the
    // bit of the publishing.
    std::deque<std::pair<std::weak_ptr<plugin>, int>> wanted_recoveries;

    std::map<std::string, arranged_answer> arranged; // by method

    store& trees;
    agent_table agents;
    notifier notifications;

    unique_node serve(plugin& from, const std::string& method, const xmlNode* params) override;
    void gone(plugin& which) override;

private:
    event_loop& loop_;
    event_journal& events_;
    int plugin_socket_ = -1;
    std::vector<std::shared_ptr<plugin>> plugins_;
};

} // namespace pelmsim
