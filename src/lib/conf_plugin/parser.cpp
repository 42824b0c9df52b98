#include "conf_plugin/parser.h"

#include "conf_plugin/log.h"
#include "support/xml.h"

#include <cstring>
#include <libxml/parserInternals.h>

namespace conf {
namespace {

// A parser keeps each name it has seen, so it is given up before those of few messages add up.
constexpr std::uint32_t most_bytes = 0x10000;

using unique_parser = unique_handle<freed_by<xmlParserCtxt, xmlFreeParserCtxt>>;

xmlNode* parse_failure() noexcept {
    return plugin_failure("Translate rpc message to xml dom tree failed.");
}

// Whether a body begins with its root. Then it has neither an XML declaration nor a document type, both
// of which stand in front. And a zero would end it early: versions differ in what xmlReadMemory() makes
// of one.
bool is_bare(const char* body, int bytes) noexcept {
    const auto size = static_cast<std::size_t>(bytes);
    return body[0] == '<' && body[1] != '?' && body[1] != '!' && strnlen(body, size) == size;
}

// Whether xmlReadMemory() makes the same of a body although it looks ahead, as far as one can tell.
#if LIBXML_VERSION < 21100
// That is near the end, where it refuses a large body in which no markup has begun shortly before. What
// stands in a comment, a section or an instruction is none, so none of these may end there.
bool is_read_alike(const char* body, int bytes) noexcept {
    if (bytes <= XML_MAX_LOOKUP_LIMIT)
        return true;
    constexpr int farthest = 499;
    constexpr int nearest = 250;
    bool is_near = false;
    for (int left = farthest; left > 0; --left) {
        const char* at = body + bytes - left;
        if (*at == '<' && left > nearest)
            is_near = true;
        if (*at == '>' && (at[-1] == '-' || at[-1] == '?' || at[-1] == ']'))
            return false;
    }
    return is_near;
}
#else
// That may be anywhere. It refuses some large bodies, and takes a part of a long run of blanks for text.
bool is_read_alike(const char* body, int bytes) noexcept {
    constexpr const char* blanks = " \t\r\n";
    constexpr int longest = 200;
    for (int at = longest; at < bytes; at += longest) { // one of these is within each longer run
        int first = at;
        while (first > 0 && std::strchr(blanks, body[first - 1]) != nullptr)
            --first;
        if (std::strspn(body + first, blanks) > longest)
            return false;
    }
    return bytes <= XML_MAX_LOOKUP_LIMIT;
}
#endif

// Holds a byte at zero. It may be the first of the next frame.
class zeroed_byte {
public:
    explicit zeroed_byte(char* byte) noexcept : byte_(byte), value_(std::exchange(*byte, '\0')) {}
    zeroed_byte(const zeroed_byte&) = delete;
    zeroed_byte& operator=(const zeroed_byte&) = delete;
    ~zeroed_byte() { *byte_ = value_; }

private:
    char* byte_;
    char value_;
};

// Without a dictionary each name and text is the node's own, which is what lets a tree live on alone.
xmlParserCtxt* new_parser() noexcept {
    xmlParserCtxt* parser = xmlNewParserCtxt();
    if (parser != nullptr)
        (void)xmlCtxtUseOptions(parser, XML_PARSE_NOBLANKS | XML_PARSE_NODICT);
    return parser;
}

// Parses without a copy of the text, behind which there is a zero. @return what there is of a document
#if LIBXML_VERSION < 21400
xmlDoc* parse_document(xmlParserCtxt* parser, const char* body, int /*bytes*/) noexcept {
    if (inputPush(parser, xmlNewStringInputStream(parser, BAD_CAST body)) < 0)
        return nullptr;
    (void)xmlParseDocument(parser);
    return std::exchange(parser->myDoc, nullptr);
}
#else
xmlDoc* parse_document(xmlParserCtxt* parser, const char* body, int bytes) noexcept {
    constexpr auto as_it_stands = static_cast<xmlParserInputFlags>(
        XML_INPUT_BUF_STATIC | XML_INPUT_BUF_ZERO_TERMINATED); // with one of them it copies
    xmlParserInput* input =
        xmlNewInputFromMemory(nullptr, body, static_cast<std::size_t>(bytes), as_it_stands);
    return input != nullptr ? xmlCtxtParseDocument(parser, input) : nullptr;
}
#endif

// Takes siblings, and all below, out of their document. As with copies, only elements know their line.
void cut_loose(xmlNode* first) noexcept {
    for (xmlNode* node = first; node != nullptr; node = node->next) {
        node->doc = nullptr;
        if (node->type != XML_ELEMENT_NODE) {
            node->line = 0;
            continue;
        }
        for (xmlAttr* attribute = node->properties; attribute != nullptr;
             attribute = attribute->next) {
            attribute->doc = nullptr;
            cut_loose(attribute->children);
        }
        cut_loose(node->children); // which the parser lets be some hundred deep
    }
}

xmlNode* take_root(xmlDoc* doc) noexcept {
    xmlNode* root = xmlDocGetRootElement(doc);
    xmlUnlinkNode(root);
    cut_loose(root);
    return root;
}

} // namespace

// Short texts of a document are shared with equal texts and names, so the document is scrubbed only
// once the copy has been made, or has failed.
xmlNode* parse_copy(const char* body, int bytes) noexcept {
    const memory_watch watch;
    secret_doc doc{xmlReadMemory(body, bytes, nullptr, "utf-8", XML_PARSE_NOBLANKS)};
    if (!doc || watch.ran_out())
        return parse_failure();
    xmlNode* copy = copy_tree(xmlDocGetRootElement(doc.get()));
    if (copy == nullptr)
        return plugin_failure("Copy node failed when parse plugin message.");
    return copy;
}

xmlNode* body_parser::parse(char* body, int bytes) noexcept {
    ran_out_ = false;
    const bool is_same = is_bare(body, bytes) && is_read_alike(body, bytes);
    xmlNode* root = is_same ? parse_in_place(body, bytes) : nullptr;
    if (root != nullptr)
        return root;
    return ran_out_ ? parse_failure() : parse_copy(body, bytes);
}

// @return null for a body about which libxml2 has a word to say, which the host is to hear as ever, or that
// leans on its document: "xml:" is a namespace of that
xmlNode* body_parser::parse_in_place(char* body, int bytes) noexcept {
    const zeroed_byte end{body + bytes};
    const memory_watch watch{memory_watch::host::hears_of_memory};
    unique_parser parser{take_parser(bytes)};
    const secret_doc doc{parser ? parse_document(parser.get(), body, bytes) : nullptr};
    ran_out_ = watch.ran_out() || (!doc && !watch.has_heard()); // which not all versions say
    if (!doc || watch.has_heard() || doc.get()->oldNs != nullptr)
        return nullptr;
    if (parsed_bytes_ <= most_bytes)
        keep_parser(parser.release());
    return take_root(doc.get());
}

// It is nobody's while it is in use: were it entered again meanwhile, that would be another one.
xmlParserCtxt* body_parser::take_parser(int bytes) noexcept {
    const auto more = static_cast<std::uint32_t>(bytes);
    if (parsed_bytes_ + more > most_bytes)
        forget();
    parsed_bytes_ += more;
    xmlParserCtxt* parser = std::exchange(idle_, nullptr);
    return parser != nullptr ? parser : new_parser();
}

void body_parser::keep_parser(xmlParserCtxt* parser) noexcept {
    xmlCtxtReset(parser);
    xmlFreeParserCtxt(std::exchange(idle_, parser));
}

void body_parser::forget() noexcept {
    xmlFreeParserCtxt(std::exchange(idle_, nullptr));
    parsed_bytes_ = 0;
}

} // namespace conf
