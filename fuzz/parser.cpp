// Whether bodies of the internal road become what xmlReadMemory() and a copy make of them, and
// whether the host hears the same.
#include "conf_plugin/parser.h"

#include "input.h"
#include "support/xml.h"

#include <cstring>
#include <vector>

using conf::secret_node;

namespace {

std::vector<int> heard; // the codes of libxml2's reports

#if LIBXML_VERSION < 21200
void hear(void*, xmlError* error) { heard.push_back(error->code); }
#else
void hear(void*, const xmlError* error) { heard.push_back(error->code); }
#endif

bool are_equal(const char* left, const char* right) {
    return left == right || (left != nullptr && right != nullptr && std::strcmp(left, right) == 0);
}
bool are_equal(const xmlChar* left, const xmlChar* right) {
    return are_equal(reinterpret_cast<const char*>(left), reinterpret_cast<const char*>(right));
}

void compare(const xmlNs* left, const xmlNs* right) {
    require((left == nullptr) == (right == nullptr));
    if (left == nullptr)
        return;
    require(are_equal(left->href, right->href) && are_equal(left->prefix, right->prefix));
}

void compare_declarations(const xmlNs* left, const xmlNs* right) {
    for (; left != nullptr && right != nullptr; left = left->next, right = right->next)
        compare(left, right);
    require(left == right); // both at their ends
}

// What elements and attributes, all but namespaces, have alike.
template <class Node> void compare_heads(const Node* left, const Node* right) {
    require(left->type == right->type && are_equal(left->name, right->name));
    require(left->doc == nullptr && right->doc == nullptr && left->psvi == right->psvi);
    require((left->parent == nullptr) == (right->parent == nullptr));
    compare(left->ns, right->ns);
}

void compare_siblings(const xmlNode* left, const xmlNode* right);

void compare_attributes(const xmlAttr* left, const xmlAttr* right) {
    for (; left != nullptr && right != nullptr; left = left->next, right = right->next) {
        compare_heads(left, right);
        require(left->atype == right->atype);
        compare_siblings(left->children, right->children);
    }
    require(left == right);
}

void compare_siblings(const xmlNode* left, const xmlNode* right) {
    for (; left != nullptr && right != nullptr; left = left->next, right = right->next) {
        compare_heads(left, right);
        require(left->line == right->line);
        if (left->type == XML_ELEMENT_NODE) {
            compare_declarations(left->nsDef, right->nsDef);
            compare_attributes(left->properties, right->properties);
            compare_siblings(left->children, right->children);
        } else {
            require(left->children == nullptr && right->children == nullptr);
            require(are_equal(left->content, right->content));
        }
        require((left->next == nullptr) == (right->next == nullptr));
    }
    require(left == right);
}

using namespace std::string_view_literals;

// An element that is well-formed but for names and attributes that do not go together.
std::string element(input& in, unsigned int depth) {
    static constexpr std::string_view names[] = {"a", "rpc", "params", "p:c", "q:d", "xml:e"};
    static constexpr std::string_view attributes[] = {"",
                                                      "",
                                                      "",
                                                      " x='1'",
                                                      " p:x=\"&lt;2\n\"",
                                                      " xmlns:p='u'",
                                                      " xmlns='v'",
                                                      " xmlns:q=\"w\"",
                                                      " xmlns=''",
                                                      " xml:lang='en'",
                                                      " xml:id='i'",
                                                      " y='&#10;\xC3\xA9'",
                                                      "   \r\n  "};
    static constexpr std::string_view pieces[] = {"text",
                                                  "&amp;",
                                                  "&#65;",
                                                  "&#x20AC;",
                                                  "<![CDATA[<]]>",
                                                  "<!--c-->",
                                                  "<?p i?>",
                                                  " ",
                                                  "\n",
                                                  "\r\n\t",
                                                  "\xE2\x82\xAC",
                                                  "]]",
                                                  "&e;",
                                                  "                                          "};
    const std::string name(in.pick(names));
    std::string result = "<" + name;
    for (auto left = in.below(4); left > 0; --left)
        result += in.pick(attributes);
    if (in.below(8) == 0)
        return result + "/>";
    result += ">";
    for (auto left = in.below(6); left > 0; --left)
        result += depth > 0 && in.flag() ? element(in, depth - 1) : std::string(in.pick(pieces));
    return result + "</" + name + ">";
}

// Pieces of markup in any order.
std::string rubble(input& in) {
    static constexpr std::string_view pieces[] = {"<a>",
                                                  "</a>",
                                                  "<b/>",
                                                  "<a x='1'",
                                                  ">",
                                                  "/>",
                                                  "<",
                                                  "&",
                                                  ";",
                                                  "&lt;",
                                                  "&e;",
                                                  "<![CDATA[",
                                                  "]]>",
                                                  "<!--",
                                                  "-->",
                                                  "<?pi ",
                                                  "?>",
                                                  "<?xml version='1.0'?>",
                                                  "<!DOCTYPE a>",
                                                  "text",
                                                  " ",
                                                  "\n",
                                                  "\xC3",
                                                  "\xFF",
                                                  "\0"sv,
                                                  "'",
                                                  "\"",
                                                  "=",
                                                  ":"};
    return in.text(pieces);
}

std::string body_of(input& in) {
    static constexpr std::string_view heads[] = {"",
                                                 "",
                                                 "",
                                                 "",
                                                 "",
                                                 "",
                                                 "<?xml version='1.0'?>",
                                                 " ",
                                                 "<!--c-->",
                                                 "\xEF\xBB\xBF",
                                                 "<?xml version='1.0' encoding='ISO-8859-1'?>",
                                                 "<!DOCTYPE a [<!ENTITY e 'x<a/>y'>]>",
                                                 "\n<!DOCTYPE a [<!ENTITY e 'z'>]>"};
    std::string body = std::string(in.pick(heads)) + element(in, 4);
    if (in.below(8) == 0)
        body += rubble(in);
    for (auto left = in.below(4); left > 1 && !body.empty(); --left) // bytes that are out of place
        body.at(in.below(body.size())) = static_cast<char>(in.below(256));
    return in.below(16) == 0 ? rubble(in) : body;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static conf::body_parser parser;
    xmlSetStructuredErrorFunc(nullptr, hear);
    for (input in(bytes, size); !in.is_used_up();) {
        const std::string body = in.below(8) == 0 ? in.rest() : body_of(in);
        std::string frames = body + "next";
        const auto length = static_cast<int>(body.size());
        heard.clear();
        const secret_node copy{conf::parse_copy(body.data(), length)};
        const std::vector<int> expected = std::exchange(heard, {});
        const secret_node root{parser.parse(frames.data(), length)};
        require(frames == body + "next");
        require(heard == expected);
        compare_siblings(copy.get(), root.get());
    }
    return 0;
}
