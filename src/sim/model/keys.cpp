#include "model/keys.h"

#include <algorithm>
#include <conf_api.h>

namespace pelmsim {
namespace {

std::string names_of(const xmlNode* element) {
    if (element->parent == nullptr || element->parent->type != XML_ELEMENT_NODE)
        return {};
    return names_of(element->parent) + "/" + local_name(element);
}

std::string first_leaf(const xmlNode* element) {
    const auto children = child_elements(element);
    return !children.empty() && is_leaf(children.front()) ? local_name(children.front()) : "";
}

bool has_twin(const xmlNode* element, const std::vector<xmlNode*>& siblings) {
    return std::ranges::any_of(siblings, [&](const xmlNode* other) {
        return other != element && local_name(other) == local_name(element);
    });
}

// Each path with all that stands there: entries that nothing tells apart count as one.
using instances = std::vector<std::pair<data_path, std::string>>;

instances instances_of(const tree& configuration, const data_path& path, const key_book& keys) {
    instances found;
    for (const xmlNode* element : configuration.select(path)) {
        data_path its_path = keys.path_of(path, element);
        if (!found.empty() && found.back().first.text() == its_path.text())
            found.back().second += compact_node(element);
        else
            found.emplace_back(std::move(its_path), compact_node(element));
    }
    return found;
}

const std::string* find(const instances& among, const data_path& path) {
    const auto found = std::ranges::find_if(
        among, [&](const auto& instance) { return instance.first.text() == path.text(); });
    return found == among.end() ? nullptr : &found->second;
}

} // namespace

void key_book::learn(const data_path& path) {
    data_path part;
    for (const path_step& step : path.steps) {
        part.steps.push_back(step);
        std::vector<std::string> names;
        for (const path_key& key : step.keys)
            names.push_back(key.name);
        if (!names.empty())
            names_[part.names()] = std::move(names);
    }
}

void key_book::learn(const tree& configuration) { learn(configuration.root(), ""); }

void key_book::learn(const xmlNode* parent, const std::string& parent_names) {
    const auto children = child_elements(parent);
    for (const xmlNode* child : children) {
        const std::string names = parent_names + "/" + local_name(child);
        const std::string key = first_leaf(child);
        const bool well_known = key == "name" || key == "id" || key == "key" || key == "index";
        if (!key.empty() && (well_known || has_twin(child, children)))
            names_.try_emplace(names, 1, key);
        else if (is_leaf(child) && has_twin(child, children))
            names_.try_emplace(names, 1, ".");
        learn(child, names);
    }
}

std::vector<path_key> key_book::keys_of(const xmlNode* element) const {
    const auto known = names_.find(names_of(element));
    if (known == names_.end())
        return {};
    std::vector<path_key> keys;
    for (const std::string& name : known->second) {
        if (name == ".")
            keys.push_back({name, text_of(element)});
        else if (find_child(element, name.c_str()) != nullptr)
            keys.push_back({name, child_text(element, name.c_str())});
    }
    return keys;
}

data_path key_book::path_of(const data_path& notation, const xmlNode* element) const {
    data_path path = notation;
    for (std::size_t index = path.steps.size(); index-- > 0; element = element->parent)
        if (auto keys = keys_of(element); !keys.empty())
            path.steps[index].keys = std::move(keys);
    return path;
}

std::vector<difference> differences(const tree& before, const tree& after, const data_path& path,
                                    const key_book& keys) {
    const instances old = instances_of(before, path, keys);
    const instances now = instances_of(after, path, keys);
    std::vector<difference> found;
    for (const auto& [its_path, text] : old)
        if (find(now, its_path) == nullptr)
            found.push_back({its_path, CONFIG_OP_RM});
    std::ranges::reverse(found);
    for (const auto& [its_path, text] : now) {
        const std::string* const was = find(old, its_path);
        if (was == nullptr || *was != text)
            found.push_back({its_path, was == nullptr ? CONFIG_OP_ADD : CONFIG_OP_MOD});
    }
    return found;
}

void add_missing(xmlNode* target, const xmlNode* source, const key_book& keys) {
    for (xmlNode* element : child_elements(source)) {
        data_path step;
        step.steps.push_back({"", local_name(element), keys.keys_of(element)});
        const auto present = child_elements(target);
        const auto same = std::ranges::find_if(
            present, [&](const xmlNode* other) { return matches(step, 0, other); });
        if (same == present.end())
            attach(target, unique_node(xmlCopyNode(element, 1)));
        else
            add_missing(*same, element, keys);
    }
}

} // namespace pelmsim
