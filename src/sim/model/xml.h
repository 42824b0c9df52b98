// The few things that are done with XML: make it, take it apart, print it.
#pragma once

#include "model/owners.h"

#include <libxml/xmlerror.h>
#include <string>
#include <vector>

namespace pelmsim {

unique_node new_element(const char* name);
unique_node new_element(const char* name, const char* uri); // in that namespace

// Adds a child at the end; its text is escaped on output. The child stays the parent's.
xmlNode* add_element(xmlNode* parent, const char* name, const std::string& text = {});

// Hangs a node, or a list, below parent.
xmlNode* attach(xmlNode* parent, unique_node child);
void attach(xmlNode* parent, unique_nodes first);

unique_nodes copy_nodes(const xmlNode* first); // with the siblings behind it

// Takes them off their parent, whose namespaces they must not be in.
unique_nodes take_children(xmlNode* parent);

// The name without a prefix, also where the prefix was never declared.
std::string local_name(const xmlNode* element);

std::vector<xmlNode*> child_elements(const xmlNode* parent);
xmlNode* find_child(const xmlNode* parent, const char* name); // the first, or null

// About as many bytes as a node with its siblings takes, all that is below included.
std::size_t weight_of(const xmlNode* first);

bool is_leaf(const xmlNode* element); // has no elements below it

// The text of an element, or of its child of that name: empty when there is none.
std::string text_of(const xmlNode* element);
std::string child_text(const xmlNode* parent, const char* name);

std::string attribute(const xmlNode* element, const char* name); // empty when it has none

// Reads elements and text as they stand between two tags. Throws malformed.
unique_nodes parse_nodes(const std::string& text);

// Reads a whole document; its root stays in it. Throws malformed.
std::shared_ptr<xmlNode> parse_document(const std::string& text);

// One node as text, and a node with the siblings behind it: in one line, or indented.
std::string compact_node(const xmlNode* node);
std::string pretty_node(const xmlNode* node);
std::string compact(const xmlNode* first);
std::string pretty(const xmlNode* first);

// Keeps the parser from writing to the standard error output on its own account, while it lives.
class silent_parser {
public:
    silent_parser();
    silent_parser(const silent_parser&) = delete;
    silent_parser& operator=(const silent_parser&) = delete;
    ~silent_parser();

private:
    xmlStructuredErrorFunc before_;
    void* context_before_;
};

} // namespace pelmsim
