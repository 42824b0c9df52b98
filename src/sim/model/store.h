// The daemon's trees: the configuration in force, the one before it, and the deployment.
#pragma once

#include "model/keys.h"

#include <string>

namespace pelmsim {

class store {
public:
    tree current;
    tree old;
    tree deployment;
    key_book keys;

    // Where a path stands: data paths of its neighbours of the same name, those that there are, as
    // <prev> and <next>. Throws problem when nothing stands there.
    unique_nodes locate(const tree& where, const data_path& path) const;

    // Throw problem when what is to be added is there, or what is to be deleted is not.
    void deploy(const std::string& oper, const data_path& path, unique_nodes data);

    // The deployment that stays over a restart: takes what there is, or takes another one.
    void save_deployment() { saved_ = deployment; }
    void load_deployment(tree kept);

    // Loses what a daemon that restarts loses; and how often it has.
    void restart();
    std::size_t restarts() const { return restarts_; }

    // Copies the current configuration into the deployment: all of it, or what is missing there.
    void copy_to_deployment(bool replace);

private:
    tree saved_;
    std::size_t restarts_ = 0;
};

} // namespace pelmsim
