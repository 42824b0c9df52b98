#include "support/xml.h"

#include "support/bounded.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <libxml/dict.h>
#include <libxml/globals.h>

namespace conf {

namespace {

// Short texts that a document was parsed with lie in its dictionary, once for all nodes and names.
bool is_shared(const xmlNode* text) noexcept {
    return text->doc != nullptr && text->doc->dict != nullptr &&
           xmlDictOwns(text->doc->dict, text->content) != 0;
}

// Without recursion, however deep the tree. Only elements are entered: the "children" of an entity
// reference are its declaration, which leads round in a circle.
void clean(xmlNode* node, bool with_shared) noexcept {
    int depth = 0;
    while (node != nullptr) {
        if (node->type == XML_TEXT_NODE && node->content != nullptr &&
            (with_shared || !is_shared(node))) {
            const std::size_t length = std::strlen(reinterpret_cast<const char*>(node->content));
            wipe(node->content, length);
        }
        if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
            node = node->children;
            ++depth;
            continue;
        }
        for (; node->next == nullptr && depth > 0; --depth)
            node = node->parent;
        node = node->next;
    }
}

} // namespace

void clean_xml_content(xmlNode* node) noexcept { clean(node, false); }

void clean_xml_document(xmlDoc* doc) noexcept { clean(xmlDocGetRootElement(doc), true); }

void clean_xml_buffer(xmlBuffer* buffer) noexcept {
    auto* text = const_cast<xmlChar*>(xmlBufferContent(buffer));
    const auto length = static_cast<std::size_t>(xmlBufferLength(buffer));
    if (text != nullptr)
        wipe(text, length);
}

// Out of memory, libxml2 may hand out an element without its name, or without its text, or a text
// without its bytes.
xmlNode* new_element(const char* name) noexcept {
    unique_node node{xmlNewNode(nullptr, BAD_CAST name)};
    if (!node || node.get()->name == nullptr)
        return nullptr;
    return node.release();
}

xmlNode* add_text(xmlNode* parent, const char* name, const char* text, xmlNs* ns) noexcept {
    xmlNode* child = xmlNewTextChild(parent, ns, BAD_CAST name, BAD_CAST text);
    if (child == nullptr || child->name == nullptr)
        return nullptr;
    const xmlNode* content = child->children;
    const bool complete = text == nullptr || (content != nullptr && content->content != nullptr);
    return complete ? child : nullptr;
}

memory_watch::memory_watch(host hears) noexcept
    : host_handler_(xmlStructuredError),
      host_printer_(xmlGenericError),
      host_context_(host_handler_ != nullptr ? xmlStructuredErrorContext : xmlGenericErrorContext),
      hears_(hears) {
    if (host_handler_ != nullptr)
        xmlSetStructuredErrorFunc(this, note);
    else
        xmlSetGenericErrorFunc(this, note_text);
}

memory_watch::~memory_watch() {
    if (host_handler_ != nullptr)
        xmlSetStructuredErrorFunc(host_context_, host_handler_);
    else
        xmlSetGenericErrorFunc(host_context_, host_printer_);
}

// @return whether the host is to hear of it
bool memory_watch::takes_note(const xmlError* error) noexcept {
    const bool is_of_memory = error != nullptr && error->code == XML_ERR_NO_MEMORY;
    has_heard_ = true;
    ran_out_ = ran_out_ || is_of_memory;
    return is_of_memory || hears_ == host::hears_all;
}

void memory_watch::note(void* watch, reported_error* error) noexcept {
    auto* self = static_cast<memory_watch*>(watch);
    if (self->takes_note(error))
        self->host_handler_(self->host_context_, error);
}

// A text that there is no memory for goes on with its places unfilled.
void memory_watch::note_text(void* watch, const char* format, ...) noexcept {
    auto* self = static_cast<memory_watch*>(watch);
    if (!self->takes_note(xmlGetLastError()))
        return;
    va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
    const bool is_whole = vasprintf(&text, format, arguments) >= 0;
    va_end(arguments);
    // libxml2's own printer looks its context up where the host's was.
    xmlSetGenericErrorFunc(self->host_context_, self->host_printer_);
    self->host_printer_(self->host_context_, "%s", is_whole ? text : format);
    xmlSetGenericErrorFunc(self, note_text);
    if (is_whole)
        std::free(text);
}

int dump_node(xmlBuffer* buffer, xmlNode* node) noexcept {
    const memory_watch watch;
    const int bytes = xmlNodeDump(buffer, nullptr, node, 0, 0);
#if LIBXML_VERSION < 21400
    // When memory runs out on the way, it frees the text and leaves the buffer pointing at it.
    if (bytes == 0 && watch.ran_out())
        buffer->content = nullptr;
#endif
    return bytes;
}

namespace {

xmlNode* copy(xmlNode* first, bool with_siblings) noexcept {
    const memory_watch watch;
    secret_node_list copies{with_siblings ? xmlCopyNodeList(first) : xmlCopyNode(first, 1)};
    return watch.ran_out() ? nullptr : copies.release();
}

} // namespace

xmlNode* copy_tree(xmlNode* node) noexcept { return copy(node, false); }

xmlNode* copy_siblings(xmlNode* first) noexcept { return copy(first, true); }

xmlNode* cut_off(xmlNode* parent) noexcept {
    xmlNode* first = std::exchange(parent->children, nullptr);
    parent->last = nullptr;
    for (xmlNode* node = first; node != nullptr; node = node->next)
        node->parent = nullptr;
    return first;
}

bool attach_list(xmlNode* parent, unique_node_list& first) noexcept {
    if (first.get()->doc != nullptr) {
        xmlNode* copies = copy_siblings(first.get());
        if (copies == nullptr)
            return false;
        first.reset(copies);
    }
    if (xmlAddChildList(parent, first.get()) == nullptr)
        return false;
    (void)first.release();
    return true;
}

} // namespace conf
