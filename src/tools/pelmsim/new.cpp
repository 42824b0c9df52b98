#include "new.h"

#include "model/problem.h"
#include "new_text.h"
#include "script/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace pelmsim {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view configuration_file = "tests/configuration.xml";

// A folder beside the one that is to be made, which goes with all that has stayed in it.
class workshop {
public:
    explicit workshop(const std::string& name) : place_("." + name + "-XXXXXX") {
        if (mkdtemp(place_.data()) == nullptr)
            throw problem(std::string("cannot make a folder here: ") + std::strerror(errno));
    }
    workshop(const workshop&) = delete;
    workshop& operator=(const workshop&) = delete;
    ~workshop() {
        std::error_code ignored; // what stays is in nobody's way
        fs::remove_all(place_, ignored);
    }

    fs::path place() const { return place_; }

private:
    std::string place_;
};

// The language, which a name ends in, is no part of what a file is.
bool is_same_file(const std::string& name, const std::string& other) {
    return name == other || name == other.substr(0, other.find(".cpp")) + ".c";
}

std::vector<template_file> templates(const new_options& given) {
    std::vector<template_file> files = plugin_templates();
    std::vector<template_file> others;
    if (given.legacy)
        others = legacy_templates();
    else if (given.cxx)
        others = cxx_templates();
    for (const template_file& other : others)
        *std::ranges::find_if(files, [&](const template_file& file) {
            return is_same_file(file.name, other.name);
        }) = other;
    return files;
}

// What the script of the configuration finds at its paths. Where one of them lies within another,
// that has none of its own.
std::string initial_configuration(const std::vector<served_path>& paths) {
    tree configuration;
    for (const served_path& each : paths) {
        const bool holds_another = std::ranges::any_of(paths, [&](const served_path& other) {
            return other.path.steps.size() > each.path.steps.size() && each.path.covers(other.path);
        });
        if (!holds_another)
            configuration.set(each.path, parse_nodes("one"));
    }
    return paths.empty() ? "" : configuration.document();
}

void write_project(const fs::path& folder, const new_options& given, const project_names& names) {
    for (const template_file& each : templates(given)) {
        template_file file = filled(each, names);
        if (file.name == configuration_file)
            file.text = initial_configuration(names.paths.at("config"));
        if (file.text.empty())
            continue;
        const fs::path place = folder / file.name;
        fs::create_directories(place.parent_path());
        write_file(place, file.text);
    }
}

void refuse_to_overwrite(const std::string& name) {
    throw problem(name + " is there already, and nothing is overwritten");
}

// Where the file system does not know how to refuse, no more than an empty folder can be replaced.
void put_in_place(const fs::path& made, const std::string& name) {
    int result = renameat2(AT_FDCWD, made.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE);
    if (result != 0 && (errno == EINVAL || errno == ENOSYS))
        result = std::rename(made.c_str(), name.c_str());
    if (result != 0 && errno == EEXIST)
        refuse_to_overwrite(name);
    if (result != 0)
        throw problem("cannot make " + name + ": " + std::strerror(errno));
}

} // namespace

int make_project(const new_options& given) {
    const project_names names = names_for(given);
    if (fs::exists(fs::symlink_status(given.name)))
        refuse_to_overwrite(given.name);
    const workshop shop(given.name);
    const fs::path made = shop.place() / given.name;
    write_project(made, given, names);
    put_in_place(made, given.name);
    const char* const name = given.name.c_str();
    std::printf("Made %s. To build it and run its tests:\n"
                "    cd %s\n"
                "    cmake -S . -B build\n"
                "    cmake --build build\n"
                "    ctest --test-dir build --output-on-failure\n",
                name, name);
    return 0;
}

} // namespace pelmsim
