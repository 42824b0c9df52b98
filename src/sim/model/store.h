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

    // The deployment that stays over a restart: takes what there is, puts that back, or takes
    // another one.
    void save_deployment() { saved_ = deployment; }
    void reload_deployment() { deployment = saved_; }
    void load_deployment(tree kept);

    // Copies the current configuration into the deployment: all of it, or what is missing there.
    void copy_to_deployment(bool replace);

private:
    tree saved_;
};

} // namespace pelmsim
