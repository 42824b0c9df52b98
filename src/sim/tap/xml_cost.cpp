#include "tap/xml_cost.h"

#include <algorithm>
#include <vector>

namespace pelmsim {
namespace {

// Each name may be looked for among the attributes and namespaces of all elements that are open.
constexpr std::size_t most_attributes = 1000;
constexpr std::size_t deepest = 256; // that a parser goes

struct tag {
    std::size_t length;
    std::size_t attributes = 0;
    bool is_empty = false;
};

// One that is not closed goes to the end.
tag read_tag(std::string_view text) {
    tag its{text.size()};
    char quote = 0;
    for (std::size_t at = 1; at < text.size(); ++at) {
        const char c = text[at];
        if (quote != 0)
            quote = c == quote ? '\0' : quote;
        else if (c == '"' || c == '\'')
            quote = c;
        else if (c == '=')
            ++its.attributes;
        else if (c == '>')
            return {at + 1, its.attributes, text[at - 1] == '/'};
    }
    return its;
}

// Of what begins with that; 0 when it begins otherwise.
std::size_t length_of(std::string_view text, std::string_view begin, std::string_view end) {
    if (!text.starts_with(begin))
        return 0;
    const std::size_t at = text.find(end, begin.size());
    return at == std::string_view::npos ? text.size() : at + end.size();
}

// Of what stands there that is no element's tag.
std::size_t length_of_other(std::string_view text) {
    return std::max({length_of(text, "<!--", "-->"), length_of(text, "<![CDATA[", "]]>"),
                     length_of(text, "<?", "?>")});
}

} // namespace

const char* costly_part(std::string_view text) {
    std::vector<std::size_t> open; // attributes of these elements
    std::size_t attributes = 0;
    for (std::size_t at = text.find('<'); at < text.size(); at = text.find('<', at)) {
        const std::string_view rest = text.substr(at);
        if (const std::size_t length = length_of_other(rest); length > 0) {
            at += length;
            continue;
        }
        if (rest.starts_with("<!"))
            return "it has a document type";
        const tag its = read_tag(rest);
        at += its.length;
        if (rest.starts_with("</")) {
            attributes -= open.empty() ? 0 : open.back();
            if (!open.empty())
                open.pop_back();
            continue;
        }
        if (attributes + its.attributes > most_attributes)
            return "it has too many attributes";
        if (its.is_empty)
            continue;
        if (open.size() == deepest)
            return "it is too deep";
        open.push_back(its.attributes);
        attributes += its.attributes;
    }
    return nullptr;
}

} // namespace pelmsim
