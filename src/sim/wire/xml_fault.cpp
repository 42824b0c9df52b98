#include "wire/xml_fault.h"

#include "journal/escaped.h"

#include <algorithm>
#include <cstdio>

namespace pelmsim {
namespace {

constexpr std::size_t most_before = 24; // bytes that are shown

// Of UTF-8, those that XML has no place for: controls, halves of pairs, and the last two.
bool is_allowed(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    if (first < 0x20)
        return first == '\t' || first == '\n' || first == '\r';
    return character < "\xED\xA0" ||
           (character >= "\xEE" && character != "\xEF\xBF\xBE" && character != "\xEF\xBF\xBF");
}

std::string in_hex(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        char byte[8];
        (void)std::snprintf(byte, sizeof byte, "0x%02x", static_cast<unsigned char>(c));
        text += (text.empty() ? "" : " ") + std::string(byte);
    }
    return text;
}

std::string with_place(const std::string& what, std::string_view body, std::size_t at) {
    const std::size_t begin = at - std::min(at, most_before);
    return what + " at byte " + std::to_string(at) + " of " + std::to_string(body.size()) +
           ", behind \"" + escaped(body.substr(begin, at - begin)) + "\"";
}

} // namespace

std::string character_fault(std::string_view body) {
    for (std::size_t at = 0; at < body.size();) {
        const std::string_view left = body.substr(at);
        const std::size_t length = character_length(left);
        if (length == 0 || !is_allowed(left.substr(0, length)))
            return with_place(in_hex(left.substr(0, std::max<std::size_t>(length, 1))), body, at);
        at += length;
    }
    return {};
}

std::string unknown_entity(std::string_view body) {
    constexpr std::string_view of_names = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                          "0123456789_-.:";
    constexpr std::string_view known[] = {"amp", "lt", "gt", "quot", "apos"};
    for (std::size_t at = body.find('&'); at != std::string_view::npos;
         at = body.find('&', at + 1)) {
        const std::size_t end = std::min(body.find_first_not_of(of_names, at + 1), body.size());
        const std::string_view name = body.substr(at + 1, end - at - 1);
        if (!name.empty() && body.substr(end).starts_with(';') &&
            std::ranges::find(known, name) == std::end(known))
            return with_place("the entity &" + std::string(name) + ";", body, at);
    }
    return {};
}

} // namespace pelmsim
