#include "new_names.h"

#include "model/problem.h"

#include <algorithm>
#include <set>
#include <string_view>

namespace pelmsim {
namespace {

constexpr std::size_t longest_name = 64;

// Of the build: CMake's own targets and folders, and the file that stands beside.
constexpr std::string_view taken_names[] = {
    "ALL_BUILD",  "CMakeFiles", "INSTALL",        "PACKAGE",    "RUN_TESTS",     "Testing",
    "ZERO_CHECK", "all",        "clean",          "edit_cache", "help",          "install",
    "main",       "package",    "package_source", "preinstall", "rebuild_cache", "test"};

bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Letters, digits and these others, behind a letter or an underscore.
bool is_name(const std::string& text, const std::string& others) {
    return !text.empty() && (is_letter(text[0]) || text[0] == '_') &&
           std::ranges::all_of(text, [&](char c) {
               return is_letter(c) || is_digit(c) || others.find(c) != std::string::npos;
           });
}

void check_plugin_name(const std::string& name) {
    if (!is_name(name, "-_") || name[0] == '_' || name.size() > longest_name)
        throw problem(name + " cannot name a project: a name is a letter, then letters, digits, " +
                      "dashes and underscores, up to 64 in all");
    if (std::ranges::find(taken_names, name) != std::end(taken_names))
        throw problem(name + " cannot name a project: its build has something so called");
}

// No quotes, backslashes or markup, for the path is written in C, in scripts and in XML.
bool is_plain(const std::string& key_value) {
    return std::ranges::all_of(key_value, [](char c) {
        return c >= ' ' && c <= '~' && std::string(R"("'\&<>?*[])").find(c) == std::string::npos;
    });
}

void check_step(const path_step& step, const std::string& path) {
    if (!is_name(step.name, "-_.") || (!step.prefix.empty() && !is_name(step.prefix, "-_.")))
        throw problem(path + " cannot be served: \"" + step.prefix +
                      (step.prefix.empty() ? "" : ":") + step.name + "\" is no name in XML");
    for (const path_key& key : step.keys)
        if (!is_name(key.name, "-_.") || !is_plain(key.value))
            throw problem(path + " cannot be served: the key \"" + key.name + "\" has no plain " +
                          "name or value");
}

data_path checked_path(const std::string& text) {
    if (!text.starts_with('/') || text == "/")
        throw problem("\"" + text + "\" names no element: a path begins with a slash and a name");
    data_path path(text);
    for (const path_step& step : path.steps)
        check_step(step, text);
    return path;
}

std::string as_identifier(std::string text) {
    const auto is_other = [](char c) { return !is_letter(c) && !is_digit(c); };
    std::ranges::replace_if(text, is_other, '_');
    return text;
}

// The last step's name if that is free yet, all names, or these with a number.
std::string free_identifier(const data_path& path, std::set<std::string>& taken) {
    std::string found = as_identifier(path.steps.back().name);
    if (taken.insert(found).second)
        return found;
    const std::string all = as_identifier(path.names().substr(1));
    found = all;
    for (int number = 2; !taken.insert(found).second; ++number)
        found = all + "_" + std::to_string(number);
    return found;
}

std::vector<served_path> served(const std::vector<std::string>& texts) {
    std::vector<served_path> all;
    std::set<std::string> taken;
    for (const std::string& text : texts) {
        const data_path path = checked_path(text);
        for (const served_path& other : all)
            if (other.path.covers(path) && path.covers(other.path))
                throw problem(text + " names elements that " + other.path.text() + " names, too");
        all.push_back({path, free_identifier(path, taken)});
    }
    return all;
}

} // namespace

project_names names_for(const new_options& given) {
    check_plugin_name(given.name);
    if (given.config.empty() && given.status.empty() && given.operate.empty())
        return {given.name,
                {{"config", served({"/" + given.name + "/setting"})},
                 {"status", served({"/" + given.name + "/state"})},
                 {"operate", served({"/" + given.name + "/reset"})}}};
    return {given.name,
            {{"config", served(given.config)},
             {"status", served(given.status)},
             {"operate", served(given.operate)}}};
}

} // namespace pelmsim
