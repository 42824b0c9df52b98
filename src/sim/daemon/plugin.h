// One plugin that is connected: what it registered, and requests to and from it.
#pragma once

#include "daemon/registration.h"
#include "model/outcome.h"
#include "wire/connection.h"

#include <conf_def.h>
#include <optional>
#include <vector>

namespace pelmsim {

class plugin;

// The daemon's side of a plugin's requests.
class plugin_owner {
public:
    // Null when no answer is to be given; otherwise a <result> or an <error>.
    virtual unique_node serve(plugin& from, const std::string& method, const xmlNode* params) = 0;
    virtual void gone(plugin& which) = 0;

    virtual void heard_from(pid_t pid) = 0; // what it sent is not read yet

    virtual milliseconds answer_limit() const = 0; // how long plugins may take to answer

protected:
    ~plugin_owner() = default;
};

class plugin : public connection {
public:
    plugin(event_loop& loop, event_journal& events, unique_fd socket, plugin_owner& owner)
        : connection(loop, events, std::move(socket)), owner_(owner) {}

    // Sends a request and serves events until it is answered, the connection ends or the time is up.
    outcome ask(const std::string& method, unique_node params, const data_path* path = nullptr,
                std::optional<int> operation = {});

    peer who() const override;

    std::string name; // empty until it registers
    bool active = false;
    std::vector<registration> registrations;

protected:
    void on_arrival() override { owner_.heard_from(pid()); }
    void on_frame(unique_node body) override;
    void on_unreadable(const defect& what) override;
    void on_closed() override;

private:
    void on_request(xmlNode* rpc);
    void on_answer(unique_node reply);

    plugin_owner& owner_;
    u32_t last_id_ = 0;
    u32_t awaited_id_ = 0; // 0 while nothing is awaited
    std::optional<outcome> answer_;
};

unique_node new_error(int code, const std::string& text);

} // namespace pelmsim
