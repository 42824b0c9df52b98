// Owners of XML trees, and the few steps that every builder is made of.
#pragma once

#include "support/handle.h"

#include <libxml/tree.h>
#include <libxml/xmlerror.h>

namespace conf {

// Overwrites every text in the trees of node and of its following siblings with zeroes. Attribute
// values, comments and CDATA sections are left alone, and so is what other nodes of a parsed document
// may share. Null is ignored.
//
// It walks the siblings too: never call it on a node that stands among siblings that matter.
void clean_xml_content(xmlNode* node) noexcept;

// As above for a whole document, shared texts included: it is good for nothing then but to be freed.
void clean_xml_document(xmlDoc* doc) noexcept;

// Overwrites the text in a buffer with zeroes.
void clean_xml_buffer(xmlBuffer* buffer) noexcept;

// The secret ones overwrite what clean_xml_content() does before they free.
inline void free_secret(xmlNode* node) noexcept {
    clean_xml_content(node);
    xmlFreeNode(node);
}
inline void free_secret_list(xmlNode* first) noexcept {
    clean_xml_content(first);
    xmlFreeNodeList(first);
}
inline void free_secret_doc(xmlDoc* doc) noexcept {
    clean_xml_document(doc);
    xmlFreeDoc(doc);
}
inline void free_secret_buffer(xmlBuffer* buffer) noexcept {
    clean_xml_buffer(buffer);
    xmlBufferFree(buffer);
}

using unique_node = unique_handle<freed_by<xmlNode, xmlFreeNode>>;
using unique_node_list = unique_handle<freed_by<xmlNode, xmlFreeNodeList>>;
using unique_xml_buffer = unique_handle<freed_by<xmlBuffer, xmlBufferFree>>;
using secret_node = unique_handle<freed_by<xmlNode, free_secret>>;
using secret_node_list = unique_handle<freed_by<xmlNode, free_secret_list>>;
using secret_doc = unique_handle<freed_by<xmlDoc, free_secret_doc>>;
using secret_xml_buffer = unique_handle<freed_by<xmlBuffer, free_secret_buffer>>;

inline bool is_named(const xmlNode* node, const char* name) noexcept {
    return xmlStrcmp(node->name, BAD_CAST name) == 0;
}

// @return an element without children, or null without memory
xmlNode* new_element(const char* name) noexcept;

// Adds a child whose text is escaped on output; null text gives an empty element.
// @return the child, or null without memory; what was made of it then stays below parent
xmlNode* add_text(xmlNode* parent, const char* name, const char* text,
                  xmlNs* ns = nullptr) noexcept;

inline xmlNode* add_empty(xmlNode* parent, const char* name, xmlNs* ns = nullptr) noexcept {
    return add_text(parent, name, nullptr, ns);
}

// Notices what libxml2 reports while it lives, above all that it runs out of memory. What libxml2
// returns then may look whole and have pieces missing, and later errors of other kinds take the place
// of its last error.
//
// It stands before the handler that the host has set, structured or generic, and hands on to it all
// that it hears, or reports of memory alone. The generic one hears the text that libxml2 composes,
// piece by piece; where the host has set none, that is how reports reach stderr.
class memory_watch {
public:
    enum class host { hears_all, hears_of_memory };

    explicit memory_watch(host hears = host::hears_all) noexcept;
    memory_watch(const memory_watch&) = delete;
    memory_watch& operator=(const memory_watch&) = delete;
    ~memory_watch();

    bool ran_out() const noexcept { return ran_out_; }
    bool has_heard() const noexcept { return has_heard_; }

private:
    bool takes_note(const xmlError* error) noexcept;

#if LIBXML_VERSION < 21200
    using reported_error = xmlError;
#else
    using reported_error = const xmlError;
#endif
    static void note(void* watch, reported_error* error) noexcept;
    [[gnu::format(printf, 2, 3)]] static void note_text(void* watch, const char* format,
                                                        ...) noexcept;

    const xmlStructuredErrorFunc host_handler_;
    const xmlGenericErrorFunc host_printer_; // in use when there is no handler
    void* const host_context_;
    const host hears_;
    bool has_heard_ = false;
    bool ran_out_ = false;
};

// Copies of a tree and of a list of siblings.
// @return null for null, or without memory for all of it
xmlNode* copy_tree(xmlNode* node) noexcept;
xmlNode* copy_siblings(xmlNode* first) noexcept;

// Takes over what a caller hands in, wherever it hangs. What is part of a larger tree leans on it: on
// namespaces declared further up, on texts and names of a document. So a copy takes its place; null
// without memory for that.
template <class Handle> bool adopt(Handle& node) noexcept {
    const bool leans = node.get()->doc != nullptr || node.get()->parent != nullptr;
    xmlNode* const own = leans ? copy_tree(node.get()) : node.get();
    xmlUnlinkNode(node.get()); // from siblings, too
    if (leans)
        node.reset(own);
    return static_cast<bool>(node);
}

// Hangs a child below parent, which owns it from then on.
template <class Handle> bool attach(xmlNode* parent, Handle& child) noexcept {
    if (xmlAddChild(parent, child.get()) == nullptr)
        return false;
    (void)child.release();
    return true;
}

// Takes all children off a node. @return the first, or null for none
xmlNode* cut_off(xmlNode* parent) noexcept;

// Hangs a list of siblings below parent, which owns them from then on. What was parsed shares texts and
// names with its document, so a copy takes its place.
// @return false without memory, with a list in the handle still
bool attach_list(xmlNode* parent, unique_node_list& first) noexcept;

// Writes a node into a fresh buffer, with nothing before, between and behind its text.
// @return the bytes written; -1 or 0 without memory, and in the latter case the buffer has no content
int dump_node(xmlBuffer* buffer, xmlNode* node) noexcept;

} // namespace conf
