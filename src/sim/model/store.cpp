#include "model/store.h"

#include "model/problem.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace pelmsim {
namespace {

xmlNode* neighbour(xmlNode* element, xmlNode* xmlNode::*direction) {
    for (xmlNode* other = element->*direction; other != nullptr; other = other->*direction)
        if (other->type == XML_ELEMENT_NODE && local_name(other) == local_name(element))
            return other;
    return nullptr;
}

} // namespace

std::string read_file(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    if (!file || std::filesystem::is_directory(name))
        throw problem("cannot read " + name + ": " + std::strerror(file ? EISDIR : errno));
    return {std::istreambuf_iterator<char>(file), {}};
}

store::store(std::string deployment_file) : deployment_file_(std::move(deployment_file)) {
    if (!deployment_file_.empty() && std::filesystem::exists(deployment_file_))
        saved_ = tree::from_xml(read_file(deployment_file_));
    reload_deployment();
}

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

void store::save_deployment() {
    if (!deployment_file_.empty()) {
        std::ofstream file(deployment_file_);
        file << pretty(deployment.root()) << "\n" << std::flush;
        if (!file)
            throw problem("Cannot write " + deployment_file_ + ".");
    }
    saved_ = deployment;
}

void store::copy_to_deployment(bool replace) {
    if (replace)
        deployment = current;
    else
        add_missing(deployment.root(), current.root(), keys);
}

} // namespace pelmsim
