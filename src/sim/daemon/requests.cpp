#include "daemon/requests.h"

#include "model/problem.h"

#include <algorithm>
#include <conf_api.h>
#include <cstdlib>

namespace pelmsim {
namespace {

data_path path_in(const xmlNode* params) { return data_path(child_text(params, "path")); }

// What plugins have added to a configuration, and what they have registered, stays.
constexpr std::size_t most_configured = std::size_t{64} * 1024 * 1024;
constexpr std::size_t most_keys = std::size_t{16} * 1024 * 1024;
constexpr std::size_t most_paths = 4096; // of one plugin
constexpr std::size_t most_of_paths = std::size_t{4} * 1024 * 1024;
constexpr std::size_t most_of_all_paths = 16 * most_of_paths;

unique_nodes data_in(const xmlNode* params, const tree& joins) {
    const xmlNode* const data = find_child(params, "data");
    if (data == nullptr)
        throw problem("There is no data.");
    if (weight_of(data->children) + weight_of(joins.root()) > most_configured)
        throw problem("The configuration has no room for so much.");
    return copy_nodes(data->children);
}

unique_node done() { return new_element("result"); }

registration read_entry(serves kind, const xmlNode* entry) {
    const std::string callback = child_text(entry, "callback");
    const std::string priority = child_text(entry, "priority");
    return {kind, data_path(child_text(entry, "path")),
            priority.empty() ? 0 : static_cast<int>(std::strtol(priority.c_str(), nullptr, 10)),
            static_cast<u32_t>(std::strtoul(callback.c_str(), nullptr, 10))};
}

std::vector<registration> read_entries(const xmlNode* params, std::size_t room) {
    static constexpr struct {
        const char* section;
        serves kind;
    } sections[] = {{"config-subscribe", serves::config},
                    {"status-publish", serves::status},
                    {"operate-subscribe", serves::operate}};
    std::vector<registration> entries;
    for (const auto& [section, kind] : sections) {
        const xmlNode* const list = find_child(params, section);
        if (list == nullptr)
            continue;
        for (const xmlNode* entry : child_elements(list)) {
            entries.push_back(read_entry(kind, entry));
            const std::size_t weight = entries.back().path.weight();
            if (entries.size() > most_paths || weight > room)
                throw problem("The plugin registers too many paths.");
            room -= weight;
        }
    }
    return entries;
}

const tree& tree_in(const request_context& with, const xmlNode* params) {
    return find_child(params, "old") != nullptr ? with.trees.old : with.trees.current;
}

unique_node register_plugin(const request_context&, plugin& from, const xmlNode* params) {
    const std::string name = child_text(params, "plugin-name");
    if (name.empty())
        throw problem("The plugin has no name.");
    if (!from.may_register_as(name))
        throw problem("Plugin " + name + " is registered already.");
    if (name.size() > longest_name)
        throw problem("The plugin's name is too long.");
    const std::size_t left = most_of_all_paths - from.weight_of_all_paths();
    from.register_as(name, read_entries(params, std::min(left, most_of_paths)));
    return done();
}

unique_node activate(const request_context& with, plugin& from, const xmlNode* params) {
    from.activate(true);
    const auto self = std::static_pointer_cast<plugin>(from.shared_from_this());
    if (find_child(params, "with-cfgr") != nullptr)
        want(with.wanted, self, CONFIG_OP_CFGR);
    if (find_child(params, "with-smooth") != nullptr)
        want(with.wanted, self, CONFIG_OP_SMOOTH);
    return done();
}

unique_node deactivate(const request_context&, plugin& from, const xmlNode*) {
    from.activate(false);
    return done();
}

unique_node pull(const request_context& with, plugin&, const xmlNode* params) {
    unique_node result = done();
    attach(add_element(result.get(), "data"), tree_in(with, params).copy(path_in(params)));
    return result;
}

unique_node locate(const request_context& with, plugin&, const xmlNode* params) {
    unique_node result = done();
    attach(result.get(), with.trees.locate(tree_in(with, params), path_in(params)));
    return result;
}

unique_node push(const request_context& with, plugin&, const xmlNode* params) {
    const data_path path = path_in(params);
    tree changed = with.trees.current;
    changed.set(path, data_in(params, changed));
    with.trees.keys.learn(path, most_keys);
    with.trees.keys.learn(changed, most_keys);
    with.trees.current = std::move(changed);
    return done();
}

unique_node config_deployment(const request_context& with, plugin&, const xmlNode* params) {
    with.trees.deploy(child_text(params, "oper-type"), path_in(params),
                      data_in(params, with.trees.deployment));
    return done();
}

unique_node save_deployment(const request_context& with, plugin&, const xmlNode*) {
    with.around.keep_deployment(with.trees.deployment.document());
    with.trees.save_deployment();
    return done();
}

unique_node copy_deployment(const request_context& with, plugin&, const xmlNode* params) {
    with.trees.copy_to_deployment(child_text(params, "override") == "1");
    return done();
}

constexpr struct {
    const char* name;
    unique_node (*run)(const request_context& with, plugin& from, const xmlNode* params);
} methods[] = {
    {"register", register_plugin},
    {"activate", activate},
    {"deactivate", deactivate},
    {"pull", pull},
    {"locate", locate},
    {"push", push},
    {"config_deployment", config_deployment},
    {"save_deployment", save_deployment},
    {"copy_deployment_to_memory", copy_deployment},
};

const auto* find_method(const std::string& name) {
    const auto* const found =
        std::ranges::find_if(methods, [&](const auto& each) { return name == each.name; });
    return found == std::end(methods) ? nullptr : found;
}

// The <result>; throws problem.
unique_node answer(const request_context& with, plugin& from, const std::string& method,
                   const xmlNode* params) {
    if (from.name().empty() && method != "register")
        throw problem("The plugin is not registered.");
    const auto* const found = find_method(method);
    if (found == nullptr)
        throw problem("Method <" + method + "> is not known.");
    return found->run(with, from, params);
}

} // namespace

std::optional<reply> requests::serve(plugin& from, const std::string& method, const xmlNode* params,
                                     const arranged_answer* instead) {
    if (instead == nullptr)
        instead = with_.arranged.find(method);
    if (instead != nullptr)
        return instead->silence ? std::nullopt
                                : std::optional(refusal(instead->code, instead->text));
    try {
        return reply{answer(with_, from, method, params)};
    } catch (const problem& why) {
        return refusal(-1, why.what());
    }
}

bool requests::are_known(const std::string& method) { return find_method(method) != nullptr; }

} // namespace pelmsim
