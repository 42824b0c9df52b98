// What plugins ask of the daemon, and what they are answered.
#pragma once

#include "daemon/daemon_owner.h"
#include "daemon/plugins.h"
#include "daemon/recovery.h"
#include "model/store.h"

#include <map>
#include <optional>
#include <string>

namespace pelmsim {

// What a request of one method gets instead of the usual answer.
struct arranged_answer {
    bool silence; // none at all
    int code;     // otherwise an error
    std::string text;
};

class requests final : public plugin_server {
public:
    requests(daemon_owner& around, store& trees, recovery_queue& wanted)
        : around_(around), trees_(trees), wanted_(wanted) {}

    std::optional<reply> serve(plugin& from, const std::string& method,
                               const xmlNode* params) override;

    // From now on requests of that method are answered so; or, without one, as usual.
    void arrange(const std::string& method, std::optional<arranged_answer> answer);

private:
    // A row of the table of methods: makes the <result>, or throws problem.
    using handler = unique_node (requests::*)(plugin& from, const xmlNode* params);
    static handler handler_of(const std::string& method);

    unique_node register_plugin(plugin& from, const xmlNode* params);
    unique_node activate(plugin& from, const xmlNode* params);
    unique_node deactivate(plugin& from, const xmlNode* params);
    unique_node pull(plugin& from, const xmlNode* params);
    unique_node locate(plugin& from, const xmlNode* params);
    unique_node push(plugin& from, const xmlNode* params);
    unique_node config_deployment(plugin& from, const xmlNode* params);
    unique_node save_deployment(plugin& from, const xmlNode* params);
    unique_node copy_deployment(plugin& from, const xmlNode* params);

    const tree& tree_in(const xmlNode* params) const;

    daemon_owner& around_;
    store& trees_;
    recovery_queue& wanted_;
    std::map<std::string, arranged_answer> arranged_; // by method
};

} // namespace pelmsim
