#include "script/registration_check.h"

#include "model/problem.h"
#include "script/suggest.h"

#include <algorithm>
#include <optional>

namespace pelmsim {
namespace {

// One row of the tables that a plugin registers.
struct entry {
    std::string table;
    std::size_t row;
    std::string text;   // its path, as it came
    data_path path;     // "/" when that is none, for which the registration is refused
    std::string normal; // the path's text, whatever quotes keys stand in; empty when that is "/"

    std::string place() const { return table + "[" + std::to_string(row) + "]"; }
};

using entries = std::vector<entry>;

constexpr std::size_t most_looked_at = 512;     // each is compared with each
constexpr std::size_t most_side_by_side = 4096; // elements, of which one may be meant

data_path path_in(const std::string& text) {
    try {
        return data_path(text);
    } catch (const problem&) {
        return {};
    }
}

entries read_entries(const xmlNode* params) {
    static constexpr struct {
        const char* section;
        const char* table; // where users have written it
    } sections[] = {{"config-subscribe", "config_cbs"},
                    {"status-publish", "status_cbs"},
                    {"operate-subscribe", "operate_cbs"}};
    entries all;
    for (const auto& [section, table] : sections) {
        const xmlNode* const list = find_child(params, section);
        if (list == nullptr)
            continue;
        std::size_t row = 0;
        for (const xmlNode* each : child_elements(list)) {
            if (all.size() == most_looked_at)
                return all;
            const std::string text = child_text(each, "path");
            const data_path path = path_in(text);
            all.push_back({table, row++, text, path, path.steps.empty() ? "" : path.text()});
        }
    }
    return all;
}

std::string without_digits(std::string text) {
    std::erase_if(text, [](char c) { return c >= '0' && c <= '9'; });
    return text;
}

using elements = std::vector<xmlNode*>;

elements all_below(const elements& parents) {
    elements found;
    for (const xmlNode* parent : parents)
        std::ranges::copy(child_elements(parent), std::back_inserter(found));
    return found;
}

elements matching(const data_path& path, std::size_t index, elements among) {
    std::erase_if(among, [&](const xmlNode* each) { return !matches(path, index, each); });
    return among;
}

// Numbered ones, such as ipv4 and ipv6, may all be meant.
std::string near_name(const std::string& name, const elements& among) {
    std::vector<std::string> names;
    for (const xmlNode* each : among)
        if (without_digits(local_name(each)) != without_digits(name))
            names.push_back(local_name(each));
    return did_you_mean(name, names);
}

// The path with its mistyped names put right, or nothing when it cannot be so. It stays as it is
// where something stands at it.
std::optional<data_path> put_right(data_path path, const tree& configuration) {
    elements here{configuration.root()};
    for (std::size_t index = 0; index < path.steps.size(); ++index) {
        path_step& step = path.steps[index];
        step.keys.clear(); // of entries that may still come
        const elements below = all_below(here);
        if (below.size() > most_side_by_side)
            return std::nullopt;
        here = matching(path, index, below);
        if (!here.empty())
            continue;
        step.name = near_name(step.name, below);
        here = matching(path, index, below);
        if (here.empty())
            return std::nullopt;
    }
    return path;
}

std::optional<warning> arrives_empty(const entry& its, const entries&, const tree&) {
    if (!its.text.empty())
        return std::nullopt;
    return warning{cause::empty_path, its.place(),
                   "the path of " + its.place() +
                       R"( arrives empty: in a path an ampersand is written "&amp;")"};
}

// Operations often have but a name.
std::optional<warning> has_no_slash(const entry& its, const entries&, const tree&) {
    if (its.text.starts_with('/') || its.table == "operate_cbs")
        return std::nullopt;
    return warning{cause::no_slash, its.text,
                   "the path of " + its.place() + " does not begin with a slash: write \"/" +
                       its.text + "\""};
}

bool is_same(const entry& first, const entry& second) {
    return first.text == second.text || (!first.normal.empty() && first.normal == second.normal);
}

std::optional<warning> is_there_before(const entry& its, const entries& all, const tree&) {
    for (const entry& other : all)
        if (other.row < its.row && other.table == its.table && is_same(other, its))
            return warning{cause::path_twice, its.text,
                           its.place() + " has the same path as " + other.place() + ", " +
                               its.text + ": leave one of them out"};
    return std::nullopt;
}

std::optional<warning> is_mistyped(const entry& its, const entries& all,
                                   const tree& configuration) {
    if (its.table != "config_cbs")
        return std::nullopt;
    const auto meant = put_right(its.path, configuration);
    if (!meant || meant->names() == its.path.names())
        return std::nullopt;
    if (std::ranges::any_of(
            all, [&](const entry& other) { return other.path.names() == meant->names(); }))
        return std::nullopt;
    return warning{cause::unknown_path, its.text,
                   "nothing in the configuration is at the path of " + its.place() + ", " +
                       its.text + ": did you mean " + meant->text() + "?"};
}

constexpr std::optional<warning> (*checks[])(const entry&, const entries&, const tree&) = {
    arrives_empty, has_no_slash, is_there_before, is_mistyped};

} // namespace

std::vector<warning> check_registration(const xmlNode* params, const tree& configuration) {
    const entries all = read_entries(params);
    std::vector<warning> found;
    for (const entry& each : all)
        for (const auto check : checks)
            if (auto made = check(each, all, configuration)) {
                found.push_back(std::move(*made));
                break; // the others only follow from it
            }
    return found;
}

} // namespace pelmsim
