// What the daemon asks of plugins: changes to take, status, operations and kick-offs.
#pragma once

#include "daemon/plan.h"
#include "daemon/plugins.h"
#include "daemon/recovery.h"
#include "model/store.h"

#include <functional>

namespace pelmsim {

class publisher {
public:
    publisher(daemon_owner& around, store& trees, plugin_table& plugins, recovery_queue& wanted)
        : around_(around), trees_(trees), plugins_(plugins), wanted_(wanted) {}

    // How long plugins may take to answer.
    milliseconds answer_limit() const { return answer_limit_; }
    void set_answer_limit(milliseconds limit) { answer_limit_ = limit; }

    // Makes the edited tree the current one and tells everybody whose path is concerned, in the
    // order of their priorities. At the first that does not agree, those who did are told to roll
    // back, last first, and the tree stays what it was.
    outcome change(const std::function<void(tree&)>& edit);

    // Publishes the configuration to those who went active and wanted it; they find no old one.
    void recover();

    // Publishes operation bits for a path, whatever the configuration says, to everybody who
    // subscribed to it or to what it lies in. Nobody is told of a path above the own one: a daemon
    // never does that.
    outcome publish(const data_path& path, int oper);

    outcome status(const data_path& path, const std::string& filter);
    outcome operate(const data_path& path, unique_nodes input);
    outcome kick_off(const std::string& name); // everybody when empty
    outcome send(plugin& to, const std::string& method, unique_node params);

private:
    using plugin_list = std::vector<std::shared_ptr<plugin>>;
    struct provider {
        std::shared_ptr<plugin> who;
        registration at;
    };

    std::optional<provider> provider_of(serves kind, const data_path& path) const;
    outcome recover(const std::shared_ptr<plugin>& who);
    void put_back_old(tree old, std::size_t restarts);
    outcome tell(plugin& to, const publication& what) const;
    outcome tell_all(const plugin_list& everybody, const publication_plan& plan, bool until_refused,
                     std::size_t& told) const;

    daemon_owner& around_;
    store& trees_;
    plugin_table& plugins_;
    recovery_queue& wanted_;
    milliseconds answer_limit_{10000};
};

} // namespace pelmsim
