// One configuration tree, addressed by data paths.
#pragma once

#include "model/path.h"
#include "model/xml.h"

namespace pelmsim {

class tree {
public:
    tree() : root_(new_element("config")) {}
    tree(const tree& other) : root_(copy_nodes(other.root_.get()).release()) {}
    tree(tree&&) noexcept = default; // what is left may only be assigned to
    ~tree() = default;
    tree& operator=(tree other) noexcept {
        root_.swap(other.root_);
        return *this;
    }

    // Reads a document whose root is <config> or <data>, which only wraps, or the one top element.
    // Throws malformed.
    static tree from_xml(const std::string& document);
    std::string document() const { return pretty(root_.get()) + "\n"; } // which reads as the same

    xmlNode* root() const { return root_.get(); }
    std::string text() const { return pretty(root_->children); }

    // The elements that a path names, in document order; for "/" the root that wraps everything.
    std::vector<xmlNode*> select(const data_path& path) const;

    // Copies of them; of "/" everything that is there.
    unique_nodes copy(const data_path& path) const;

    // Puts data at a path and makes what is missing above it. Elements with the name of the path's
    // last step take the place of those that stand there; anything else becomes the content of the
    // one that stands there, whose keys stay. Throws problem.
    void set(const data_path& path, unique_nodes data);

    // Takes out what a path names; false when there is nothing.
    bool remove(const data_path& path);

private:
    unique_node root_;
};

} // namespace pelmsim
