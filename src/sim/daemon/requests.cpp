// What plugins ask of the daemon.
#include "daemon/daemon.h"

#include "model/problem.h"

#include <conf_api.h>
#include <iterator>
#include <optional>

namespace pelmsim {
namespace {

data_path path_in(const xmlNode* params) { return data_path(child_text(params, "path")); }

unique_nodes data_in(const xmlNode* params) {
    const xmlNode* const data = find_child(params, "data");
    if (data == nullptr)
        throw problem("There is no data.");
    return copy_nodes(data->children);
}

registration read_entry(serves kind, const xmlNode* entry) {
    const std::string callback = child_text(entry, "callback");
    const std::string priority = child_text(entry, "priority");
    return {kind, data_path(child_text(entry, "path")),
            priority.empty() ? 0 : static_cast<int>(std::strtol(priority.c_str(), nullptr, 10)),
            static_cast<u32_t>(std::strtoul(callback.c_str(), nullptr, 10))};
}

unique_node register_plugin(daemon& host, plugin& from, const xmlNode* params) {
    static constexpr struct {
        const char* section;
        serves kind;
    } sections[] = {{"config-subscribe", serves::config},
                    {"status-publish", serves::status},
                    {"operate-subscribe", serves::operate}};
    const std::string name = child_text(params, "plugin-name");
    if (name.empty())
        throw problem("The plugin has no name.");
    if (!from.name.empty() || host.find(name) != nullptr)
        throw problem("Plugin " + name + " is registered already.");
    std::vector<registration> entries;
    for (const auto& [section, kind] : sections)
        if (const xmlNode* const list = find_child(params, section); list != nullptr)
            for (const xmlNode* entry : child_elements(list))
                entries.push_back(read_entry(kind, entry));
    from.name = name;
    from.registrations = std::move(entries);
    return new_element("result");
}

unique_node activate(daemon& host, plugin& from, const xmlNode* params) {
    from.active = true;
    const auto self = std::static_pointer_cast<plugin>(from.shared_from_this());
    if (find_child(params, "with-cfgr") != nullptr)
        host.want_recovery(self, CONFIG_OP_CFGR);
    if (find_child(params, "with-smooth") != nullptr)
        host.want_recovery(self, CONFIG_OP_SMOOTH);
    return new_element("result");
}

unique_node deactivate(daemon&, plugin& from, const xmlNode*) {
    from.active = false;
    return new_element("result");
}

unique_node pull(daemon& host, plugin&, const xmlNode* params) {
    const tree& source =
        find_child(params, "old") != nullptr ? host.trees().old : host.trees().current;
    unique_node result = new_element("result");
    attach(add_element(result.get(), "data"), source.copy(path_in(params)));
    return result;
}

unique_node locate(daemon& host, plugin&, const xmlNode* params) {
    const tree& source =
        find_child(params, "old") != nullptr ? host.trees().old : host.trees().current;
    unique_node result = new_element("result");
    attach(result.get(), host.trees().locate(source, path_in(params)));
    return result;
}

unique_node push(daemon& host, plugin&, const xmlNode* params) {
    const data_path path = path_in(params);
    tree changed = host.trees().current;
    changed.set(path, data_in(params));
    host.trees().keys.learn(path);
    host.trees().keys.learn(changed);
    host.trees().current = std::move(changed);
    return new_element("result");
}

unique_node config_deployment(daemon& host, plugin&, const xmlNode* params) {
    host.trees().deploy(child_text(params, "oper-type"), path_in(params), data_in(params));
    return new_element("result");
}

unique_node save_deployment(daemon& host, plugin&, const xmlNode*) {
    host.trees().save_deployment();
    return new_element("result");
}

unique_node copy_deployment(daemon& host, plugin&, const xmlNode* params) {
    host.trees().copy_to_deployment(child_text(params, "override") == "1");
    return new_element("result");
}

unique_node answer(daemon& host, plugin& from, const std::string& method, const xmlNode* params) {
    static constexpr struct {
        const char* name;
        unique_node (*run)(daemon&, plugin&, const xmlNode*);
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
    if (from.name.empty() && method != "register")
        throw problem("The plugin is not registered.");
    for (const auto& each : methods)
        if (method == each.name)
            return each.run(host, from, params);
    throw problem("Method <" + method + "> is not known.");
}

} // namespace

unique_node daemon::serve(plugin& from, const std::string& method, const xmlNode* params) {
    if (const auto found = arranged_.find(method); found != arranged_.end()) {
        if (found->second.silence)
            return nullptr;
        return new_error(found->second.code, found->second.text);
    }
    try {
        return answer(*this, from, method, params);
    } catch (const problem& why) {
        return new_error(-1, why.what());
    }
}

} // namespace pelmsim
