#include "model/keys.h"

#include "model/problem.h"

#include <algorithm>
#include <conf_api.h>
#include <set>

namespace pelmsim {
namespace {

constexpr std::size_t longest_names = 4096; // of a path; no list has so long ones

std::string names_of(const xmlNode* element) {
    if (element->parent == nullptr || element->parent->type != XML_ELEMENT_NODE)
        return {};
    return names_of(element->parent) + "/" + local_name(element);
}

std::size_t weight_of(const std::string& names, const std::vector<std::string>& keys) {
    constexpr std::size_t bare = 120;
    std::size_t weight = bare + names.size();
    for (const std::string& each : keys)
        weight += sizeof(std::string) + each.size();
    return weight;
}

std::string first_leaf(const xmlNode* element) {
    const auto children = child_elements(element);
    return !children.empty() && is_leaf(children.front()) ? local_name(children.front()) : "";
}

// The names that several of them have.
std::set<std::string> twins_among(const std::vector<xmlNode*>& siblings) {
    std::set<std::string> names;
    std::set<std::string> twins;
    for (const xmlNode* each : siblings)
        if (std::string name = local_name(each); !names.insert(name).second)
            twins.insert(std::move(name));
    return twins;
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

using texts = std::map<std::string, const std::string*>; // by their paths

texts texts_of(const instances& all) {
    texts found;
    for (const auto& [path, text] : all)
        found.try_emplace(path.text(), &text);
    return found;
}

// An element's name with its keys.
std::string entry_of(const xmlNode* element, const key_book& keys) {
    data_path step;
    step.steps.push_back({"", local_name(element), keys.keys_of(element)});
    return step.text();
}

} // namespace

void key_book::learn(const data_path& path, std::size_t most) {
    std::string names;
    for (const path_step& step : path.steps) {
        names += "/" + step.name;
        key_names keys;
        for (const path_key& key : step.keys)
            keys.push_back(key.name);
        if (!keys.empty())
            keep(names, std::move(keys), most);
    }
}

void key_book::learn(const tree& configuration, std::size_t most) {
    std::string names;
    learn(configuration.root(), names, most);
}

void key_book::learn(const xmlNode* parent, std::string& names, std::size_t most) {
    const auto children = child_elements(parent);
    const auto twins = twins_among(children);
    const std::size_t length = names.size();
    for (const xmlNode* child : children) {
        const std::string name = local_name(child);
        const bool has_twin = twins.contains(name);
        const std::string key = first_leaf(child);
        const bool well_known = key == "name" || key == "id" || key == "key" || key == "index";
        names += "/" + name;
        const bool is_known = names.size() > longest_names || names_.contains(names);
        if (!is_known && !key.empty() && (well_known || has_twin))
            keep(names, {key}, most);
        else if (!is_known && has_twin && is_leaf(child))
            keep(names, {"."}, most);
        if (names.size() <= longest_names)
            learn(child, names, most);
        names.resize(length);
    }
}

void key_book::keep(const std::string& names, key_names keys, std::size_t most) {
    if (names.size() > longest_names)
        return;
    const auto known = names_.find(names);
    const std::size_t before = known == names_.end() ? 0 : weight_of(names, known->second);
    const std::size_t now = weight_ - before + weight_of(names, keys);
    if (now > most)
        throw problem("There is no room for keys of more lists.");
    names_.insert_or_assign(names, std::move(keys));
    weight_ = now;
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
    const texts old_texts = texts_of(old);
    const texts new_texts = texts_of(now);
    std::vector<difference> found;
    for (const auto& [its_path, text] : old)
        if (!new_texts.contains(its_path.text()))
            found.push_back({its_path, CONFIG_OP_RM});
    std::ranges::reverse(found);
    for (const auto& [its_path, text] : now) {
        const auto was = old_texts.find(its_path.text());
        if (was == old_texts.end() || *was->second != text)
            found.push_back({its_path, was == old_texts.end() ? CONFIG_OP_ADD : CONFIG_OP_MOD});
    }
    return found;
}

void add_missing(xmlNode* target, const xmlNode* source, const key_book& keys) {
    std::map<std::string, xmlNode*> present;
    for (xmlNode* each : child_elements(target))
        present.try_emplace(entry_of(each, keys), each);
    for (const xmlNode* element : child_elements(source)) {
        const auto [same, is_new] = present.try_emplace(entry_of(element, keys), nullptr);
        if (is_new)
            same->second =
                attach(target, unique_node(xmlCopyNode(const_cast<xmlNode*>(element), 1)));
        else
            add_missing(same->second, element, keys);
    }
}

} // namespace pelmsim
