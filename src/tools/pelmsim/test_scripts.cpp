#include "test_scripts.h"

#include "model/problem.h"

#include <algorithm>
#include <filesystem>
#include <set>

namespace fs = std::filesystem;

namespace pelmsim {
namespace {

std::vector<std::string> scripts_below(const std::string& folder) {
    std::vector<std::string> found;
    for (const auto& each : fs::recursive_directory_iterator(folder))
        if (each.path().extension() == ".sim" && !each.is_directory())
            found.push_back(each.path().string());
    if (found.empty())
        throw problem("there is no script in " + folder + ": their names end in .sim");
    std::ranges::sort(found);
    return found;
}

std::vector<std::string> scripts_at(const std::string& name) {
    if (!fs::exists(name))
        throw problem("there is no script " + name);
    return fs::is_directory(name) ? scripts_below(name) : std::vector{name};
}

} // namespace

std::vector<std::string> find_scripts(const std::vector<std::string>& named) {
    std::vector<std::string> all;
    std::set<fs::path> seen;
    for (const std::string& name : named)
        for (const std::string& script : scripts_at(name)) {
            if (!seen.insert(fs::absolute(script).lexically_normal()).second)
                throw problem(script + " is named twice");
            all.push_back(script);
        }
    return all;
}

std::string configuration_beside(const std::string& script) {
    const fs::path beside = fs::path(script).replace_extension(".xml");
    return beside != script && fs::exists(beside) ? beside.string() : "";
}

std::string recording_in(const std::string& folder, const std::string& script) {
    return (fs::path(folder) / fs::path(script).filename().replace_extension(".json")).string();
}

} // namespace pelmsim
