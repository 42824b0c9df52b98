#include "model/store.h"

#include "model/problem.h"

namespace pelmsim {
namespace {

xmlNode* neighbour(xmlNode* element, xmlNode* xmlNode::*direction) {
    for (xmlNode* other = element->*direction; other != nullptr; other = other->*direction)
        if (other->type == XML_ELEMENT_NODE && local_name(other) == local_name(element))
            return other;
    return nullptr;
}

} // namespace

unique_nodes store::locate(const tree& where, const data_path& path) const {
    const auto found = where.select(path);
    if (found.empty() || path.steps.empty())
        throw problem("There is nothing at " + path.text() + ".");
    const unique_node position = new_element("position");
    if (xmlNode* const before = neighbour(found.front(), &xmlNode::prev); before != nullptr)
        add_element(position.get(), "prev", keys.path_of(path, before).text());
    if (xmlNode* const behind = neighbour(found.back(), &xmlNode::next); behind != nullptr)
        add_element(position.get(), "next", keys.path_of(path, behind).text());
    return copy_nodes(position->children);
}

void store::deploy(const std::string& oper, const data_path& path, unique_nodes data) {
    const bool present = !deployment.select(path).empty();
    if (oper == "add" && present)
        throw problem("There is something at " + path.text() + " already.");
    if (oper == "delete" && !deployment.remove(path))
        throw problem("There is nothing at " + path.text() + ".");
    if (oper != "delete")
        deployment.set(path, std::move(data));
}

void store::load_deployment(tree kept) {
    saved_ = std::move(kept);
    deployment = saved_;
}

void store::restart() {
    old = tree();
    deployment = saved_;
    ++restarts_;
}

void store::copy_to_deployment(bool replace) {
    if (replace)
        deployment = current;
    else
        add_missing(deployment.root(), current.root(), keys);
}

} // namespace pelmsim
