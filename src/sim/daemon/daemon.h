// The daemon itself: its endpoints, the plugins that are connected and what it answers them.
#pragma once

#include "daemon/agents.h"
#include "daemon/notifier.h"
#include "daemon/plugin.h"
#include "model/store.h"

#include <deque>
#include <map>
#include <optional>

namespace pelmsim {

// What a plugin's request of one method gets instead of the usual answer.
struct arranged_answer {
    bool silence; // none at all
    int code;     // otherwise an error
    std::string text;
};

class daemon final : public plugin_owner {
public:
    daemon(event_loop& loop, event_journal& events, store& trees);
    daemon(const daemon&) = delete;
    daemon& operator=(const daemon&) = delete;
    ~daemon();

    // Opens the sockets at the library's places. Throws problem when a daemon listens there already.
    void open();

    // Hangs up on everybody and removes the sockets.
    void close();

    const std::vector<std::shared_ptr<plugin>>& plugins() const { return plugins_; }
    std::shared_ptr<plugin> find(const std::string& name) const; // registered, or null

    store& trees() { return trees_; }
    agent_table& agents() { return agents_; }
    notifier& notifications() { return notifications_; }

    // From now on plugins' requests of that method are answered so; or, without one, as usual.
    void arrange(const std::string& method, std::optional<arranged_answer> answer);

    // Remembers that a plugin wants the configuration published, with that bit; and hands the
    // wishes out, the oldest first.
    void want_recovery(const std::weak_ptr<plugin>& who, int bit) {
        wanted_.emplace_back(who, bit);
    }
    std::optional<std::pair<std::weak_ptr<plugin>, int>> take_recovery();

    void set_answer_limit(milliseconds limit) { answer_limit_ = limit; }
    milliseconds answer_limit() const override { return answer_limit_; }

    // Calls with the process of a plugin or an agent before what it has sent is read.
    void on_hearing(std::function<void(pid_t)> call);

    void heard_from(pid_t pid) override { heard_from_(pid); }
    unique_node serve(plugin& from, const std::string& method, const xmlNode* params) override;
    void gone(plugin& which) override;

private:
    void welcome(unique_fd socket);

    event_loop& loop_;
    event_journal& events_;
    store& trees_;
    agent_table agents_;
    notifier notifications_;
    int plugin_socket_ = -1;
    std::vector<std::shared_ptr<plugin>> plugins_;
    std::deque<std::pair<std::weak_ptr<plugin>, int>> wanted_;
    std::map<std::string, arranged_answer> arranged_; // by method
    milliseconds answer_limit_{10000};
    std::function<void(pid_t)> heard_from_ = [](pid_t) {};
};

} // namespace pelmsim
