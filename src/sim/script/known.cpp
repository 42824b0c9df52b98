#include "script/known.h"

#include "script/session.h"

namespace pelmsim {
namespace {

constexpr std::size_t most_paths = 5000; // that anybody could look through

void add_paths(const store& trees, const xmlNode* parent, const data_path& above,
               std::vector<data_path>& paths) {
    for (const xmlNode* element : child_elements(parent)) {
        if (paths.size() == most_paths)
            return;
        data_path its_path = above;
        its_path.steps.push_back({"", local_name(element), trees.keys.keys_of(element)});
        paths.push_back(its_path);
        add_paths(trees, element, its_path, paths);
    }
}

} // namespace

std::vector<std::string> plugin_names(session& on) {
    std::vector<std::string> names;
    for (const auto& each : on.daemon.plugins().all())
        if (!each->name().empty())
            names.push_back(each->name());
    return names;
}

std::vector<std::string> program_names(session& on) {
    std::vector<std::string> names;
    for (const process& each : on.programs.all())
        names.push_back(each.name);
    return names;
}

std::vector<data_path> registered_paths(session& on, serves kind) {
    std::vector<data_path> paths;
    for (const auto& each : on.daemon.plugins().all())
        for (const registration& entry : each->registrations())
            if (entry.kind == kind)
                paths.push_back(entry.path);
    return paths;
}

std::vector<data_path> configured_paths(session& on) {
    std::vector<data_path> paths;
    add_paths(on.trees, on.trees.current.root(), {}, paths);
    return paths;
}

} // namespace pelmsim
