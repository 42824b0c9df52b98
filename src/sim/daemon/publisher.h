// What the daemon asks of plugins: changes to take, status, operations and kick-offs.
#pragma once

#include "daemon/daemon.h"
#include "daemon/plan.h"

namespace pelmsim {

class publisher {
public:
    publisher(daemon& host, store& trees) : daemon_(host), trees_(trees) {}

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

private:
    using plugins = std::vector<std::shared_ptr<plugin>>;
    struct server {
        std::shared_ptr<plugin> who;
        registration at;
    };

    std::optional<server> server_of(serves kind, const data_path& path) const;
    static outcome tell_all(const plugins& everybody, const publication_plan& plan,
                            bool until_refused, std::size_t& told);

    daemon& daemon_;
    store& trees_;
};

} // namespace pelmsim
