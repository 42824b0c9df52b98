#include "model/tree.h"

#include "model/problem.h"

#include <algorithm>

namespace pelmsim {
namespace {

std::vector<xmlNode*> matching_children(const xmlNode* parent, const data_path& path,
                                        std::size_t index) {
    std::vector<xmlNode*> found = child_elements(parent);
    std::erase_if(found, [&](const xmlNode* child) { return !matches(path, index, child); });
    return found;
}

// A list entry carries its keys first.
void ensure_keys(xmlNode* element, const path_step& step, const std::string& path) {
    for (const path_key& key : step.keys) {
        if (key.name == "." && text_of(element).empty())
            xmlNodeAddContent(element, BAD_CAST key.value.c_str());
        const bool present = key.name == "." || find_child(element, key.name.c_str()) != nullptr;
        if (!present) {
            xmlNode* const first = element->children;
            xmlNode* const added = add_element(element, key.name.c_str(), key.value);
            if (first != nullptr)
                xmlAddPrevSibling(first, added);
        } else if ((key.name == "." ? text_of(element) : child_text(element, key.name.c_str())) !=
                   key.value) {
            throw problem("the data's key \"" + key.name + "\" is not that of " + path);
        }
    }
}

xmlNode* make_child(xmlNode* parent, const data_path& path, std::size_t index) {
    const path_step& step = path.steps[index];
    xmlNode* const made = add_element(parent, step.name.c_str());
    ensure_keys(made, step, path.text());
    return made;
}

// The one element that all but the last steps lead to, made where it is missing.
xmlNode* parent_for(xmlNode* root, const data_path& path) {
    xmlNode* at = root;
    for (std::size_t index = 0; index + 1 < path.steps.size(); ++index) {
        const auto found = matching_children(at, path, index);
        if (found.size() > 1)
            throw problem(path.text() + " is ambiguous: there are several \"" +
                          path.steps[index].name + "\", say which by a key");
        at = found.empty() ? make_child(at, path, index) : found.front();
    }
    return at;
}

void drop(xmlNode* element) {
    xmlUnlinkNode(element);
    xmlFreeNode(element);
}

bool all_named(const xmlNode* first, const std::string& name) {
    for (const xmlNode* node = first; node != nullptr; node = node->next)
        if (node->type != XML_ELEMENT_NODE || local_name(node) != name)
            return false;
    return first != nullptr;
}

void replace(xmlNode* parent, const data_path& path, unique_nodes elements) {
    for (xmlNode* element = elements.get(); element != nullptr; element = element->next)
        ensure_keys(element, path.steps.back(), path.text());
    const auto old = matching_children(parent, path, path.steps.size() - 1);
    while (elements != nullptr) {
        xmlNode* const next = elements->next;
        xmlNode* const element = elements.release();
        elements.reset(next);
        xmlUnlinkNode(element);
        if (old.empty())
            xmlAddChild(parent, element);
        else
            xmlAddPrevSibling(old.front(), element);
    }
    std::ranges::for_each(old, drop);
}

void fill(xmlNode* parent, const data_path& path, unique_nodes content) {
    const path_step& step = path.steps.back();
    const auto found = matching_children(parent, path, path.steps.size() - 1);
    if (found.size() > 1)
        throw problem(path.text() + " is ambiguous: say which one by a key");
    xmlNode* const element =
        found.empty() ? make_child(parent, path, path.steps.size() - 1) : found.front();
    for (xmlNode *child = element->children, *next; child != nullptr; child = next) {
        next = child->next;
        const bool is_key = std::ranges::any_of(step.keys, [&](const path_key& key) {
            return child->type == XML_ELEMENT_NODE && local_name(child) == key.name;
        });
        if (!is_key)
            drop(child);
    }
    attach(element, std::move(content));
}

} // namespace

tree tree::from_xml(const std::string& document) {
    const auto top = parse_document(document);
    const std::string name = local_name(top.get());
    const bool only_wraps = name == "config" || name == "data";
    tree result;
    if (only_wraps)
        attach(result.root(), copy_nodes(top->children));
    else
        attach(result.root(), unique_node(xmlCopyNode(top.get(), 1)));
    return result;
}

std::vector<xmlNode*> tree::select(const data_path& path) const {
    std::vector<xmlNode*> found{root()};
    for (std::size_t index = 0; index < path.steps.size(); ++index) {
        std::vector<xmlNode*> below;
        for (const xmlNode* element : found)
            std::ranges::copy(matching_children(element, path, index), std::back_inserter(below));
        found = std::move(below);
    }
    return found;
}

unique_nodes tree::copy(const data_path& path) const {
    if (path.steps.empty())
        return copy_nodes(root()->children);
    const unique_node holder = new_element("data");
    for (xmlNode* element : select(path))
        attach(holder.get(), unique_node(xmlCopyNode(element, 1)));
    return take_children(holder.get());
}

void tree::set(const data_path& path, unique_nodes data) {
    if (path.steps.empty()) {
        *this = tree();
        attach(root(), std::move(data));
        return;
    }
    xmlNode* const parent = parent_for(root(), path);
    if (all_named(data.get(), path.steps.back().name))
        replace(parent, path, std::move(data));
    else
        fill(parent, path, std::move(data));
}

// NOLINTNEXTLINE(readability-make-member-function-const): what hangs below the root changes
bool tree::remove(const data_path& path) {
    const auto found = select(path);
    if (found.empty() || path.steps.empty())
        return false;
    std::ranges::for_each(found, drop);
    return true;
}

} // namespace pelmsim
