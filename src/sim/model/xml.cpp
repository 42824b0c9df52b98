#include "model/xml.h"

#include "model/problem.h"

#include <conf_misc.h>
#include <cstdio>
#include <cstring>
#include <libxml/parser.h>
#include <new>

namespace pelmsim {
namespace {

template <class T> T* or_throw(T* made) {
    if (made == nullptr)
        throw std::bad_alloc();
    return made;
}

struct document_deleter {
    void operator()(xmlDoc* document) const noexcept { xmlFreeDoc(document); }
};

struct parser_deleter {
    void operator()(xmlParserCtxt* parser) const noexcept { xmlFreeParserCtxt(parser); }
};

// Where a text is no well-formed XML for the first time; what comes behind is a consequence.
struct first_error {
    int line = 0;
    char reason[200] = "";
};

template <class Error> void note(void* parser, Error* error) {
    auto* const first = static_cast<first_error*>(static_cast<xmlParserCtxt*>(parser)->_private);
    if (first->line != 0 || error->level != XML_ERR_FATAL || error->message == nullptr)
        return;
    first->line = error->line;
    const std::size_t length = std::strcspn(error->message, "\n");
    (void)std::snprintf(first->reason, sizeof first->reason, "%.*s", static_cast<int>(length),
                        error->message);
}

// Called by the serialiser, which exceptions must not pass through.
int append(void* text, const char* bytes, int count) {
    try {
        static_cast<std::string*>(text)->append(bytes, static_cast<std::size_t>(count));
    } catch (const std::bad_alloc&) {
        return -1;
    }
    return count;
}

std::string dump(const xmlNode* node, int format) {
    std::string text;
    xmlOutputBuffer* const output =
        or_throw(xmlOutputBufferCreateIO(append, nullptr, &text, nullptr));
    xmlNodeDumpOutput(output, nullptr, const_cast<xmlNode*>(node), 0, format, nullptr);
    if (xmlOutputBufferClose(output) < 0)
        throw std::bad_alloc();
    return text;
}

using unique_document = std::unique_ptr<xmlDoc, document_deleter>;

unique_document parse(const std::string& text, const char* encoding) {
    const std::unique_ptr<xmlParserCtxt, parser_deleter> parser(or_throw(xmlNewParserCtxt()));
    first_error first;
    parser->_private = &first;
    parser->sax->serror = note; // in place of printing it
    unique_document document(xmlCtxtReadMemory(parser.get(), text.data(),
                                               static_cast<int>(text.size()), nullptr, encoding,
                                               XML_PARSE_NOBLANKS | XML_PARSE_NONET));
    if (document == nullptr)
        throw malformed(std::string("this is not well-formed XML: ") + first.reason, first.line,
                        first.reason);
    return document;
}

} // namespace

unique_node new_element(const char* name) {
    return unique_node(or_throw(xmlNewNode(nullptr, BAD_CAST name)));
}

unique_node new_element(const char* name, const char* uri) {
    unique_node element = new_element(name);
    xmlSetNs(element.get(), or_throw(xmlNewNs(element.get(), BAD_CAST uri, nullptr)));
    return element;
}

xmlNode* add_element(xmlNode* parent, const char* name, const std::string& text) {
    const char* const content = text.empty() ? nullptr : text.c_str();
    return or_throw(xmlNewTextChild(parent, nullptr, BAD_CAST name, BAD_CAST content));
}

xmlNode* attach(xmlNode* parent, unique_node child) {
    return or_throw(xmlAddChild(parent, child.release()));
}

void attach(xmlNode* parent, unique_nodes first) {
    if (first != nullptr)
        or_throw(xmlAddChildList(parent, first.release()));
}

unique_nodes copy_nodes(const xmlNode* first) {
    if (first == nullptr)
        return nullptr;
    return unique_nodes(or_throw(xmlCopyNodeList(const_cast<xmlNode*>(first))));
}

unique_nodes take_children(xmlNode* parent) {
    xmlNode* const first = std::exchange(parent->children, nullptr);
    parent->last = nullptr;
    for (xmlNode* node = first; node != nullptr; node = node->next)
        node->parent = nullptr;
    return unique_nodes(first);
}

std::string local_name(const xmlNode* element) {
    const std::string name = reinterpret_cast<const char*>(element->name);
    return name.substr(name.find(':') + 1);
}

std::vector<xmlNode*> child_elements(const xmlNode* parent) {
    std::vector<xmlNode*> found;
    for (xmlNode* node = parent->children; node != nullptr; node = node->next)
        if (node->type == XML_ELEMENT_NODE)
            found.push_back(node);
    return found;
}

xmlNode* find_child(const xmlNode* parent, const char* name) {
    for (xmlNode* node = parent->children; node != nullptr; node = node->next)
        if (node->type == XML_ELEMENT_NODE && local_name(node) == name)
            return node;
    return nullptr;
}

std::size_t weight_of(const xmlNode* first) {
    constexpr std::size_t bare = 120;
    const auto length = [](const xmlChar* text) {
        return text == nullptr ? 0 : std::strlen(reinterpret_cast<const char*>(text));
    };
    std::size_t weight = 0;
    for (const xmlNode* node = first; node != nullptr; node = node->next) {
        weight += bare;
        if (node->type != XML_ELEMENT_NODE) {
            weight += length(node->content);
            continue;
        }
        weight += length(node->name) + weight_of(node->children);
        for (const xmlAttr* each = node->properties; each != nullptr; each = each->next)
            weight += bare + length(each->name) + weight_of(each->children);
        for (const xmlNs* each = node->nsDef; each != nullptr; each = each->next)
            weight += bare + length(each->href) + length(each->prefix);
    }
    return weight;
}

bool is_leaf(const xmlNode* element) { return child_elements(element).empty(); }

std::string text_of(const xmlNode* element) {
    const char* const text = conf_get_node_content(const_cast<xmlNode*>(element));
    return text == nullptr ? "" : text;
}

std::string child_text(const xmlNode* parent, const char* name) {
    const xmlNode* const found = find_child(parent, name);
    return found == nullptr ? "" : text_of(found);
}

std::string attribute(const xmlNode* element, const char* name) {
    const xmlAttr* const found = xmlHasProp(const_cast<xmlNode*>(element), BAD_CAST name);
    return found == nullptr || found->children == nullptr || found->children->content == nullptr
               ? "" // the latter of an entity reference
               : reinterpret_cast<const char*>(found->children->content);
}

unique_nodes parse_nodes(const std::string& text) {
    const unique_document document = parse("<x>" + text + "</x>", "utf-8");
    return copy_nodes(xmlDocGetRootElement(document.get())->children);
}

std::shared_ptr<xmlNode> parse_document(const std::string& text) {
    const std::shared_ptr<xmlDoc> document(parse(text, nullptr));
    return {document, xmlDocGetRootElement(document.get())};
}

std::string compact_node(const xmlNode* node) { return dump(node, 0); }

std::string pretty_node(const xmlNode* node) { return dump(node, 1); }

std::string compact(const xmlNode* first) {
    std::string text;
    for (; first != nullptr; first = first->next)
        text += dump(first, 0);
    return text;
}

std::string pretty(const xmlNode* first) {
    std::string text;
    for (; first != nullptr; first = first->next)
        text += (text.empty() ? "" : "\n") + pretty_node(first);
    return text;
}

silent_parser::silent_parser()
    : before_(xmlStructuredError), context_before_(xmlStructuredErrorContext) {
    xmlSetStructuredErrorFunc(nullptr, [](void*, auto*) {});
}

silent_parser::~silent_parser() { xmlSetStructuredErrorFunc(context_before_, before_); }

} // namespace pelmsim
