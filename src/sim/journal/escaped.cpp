#include "journal/escaped.h"

#include <algorithm>
#include <cstdio>

namespace pelmsim {
namespace {

// A control character of ASCII, or one of the 32 above it, of which some terminals obey some, too.
bool is_control(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    return first < 0x20 || first == 0x7F ||
           (first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
}

bool is_plain(char c) { return c >= ' ' && c <= '~'; }

std::string escape_of(char c) {
    if (c == '\n' || c == '\r' || c == '\t')
        return c == '\n' ? "\\n" : c == '\r' ? "\\r" : "\\t";
    char text[8];
    (void)std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned char>(c));
    return text;
}

} // namespace

std::size_t character_length(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    const std::size_t length = lead < 0x80                   ? 1
                               : lead >= 0xC2 && lead < 0xE0 ? 2
                               : lead >= 0xE0 && lead < 0xF0 ? 3
                               : lead >= 0xF0 && lead < 0xF5 ? 4
                                                             : 0;
    const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80; };
    const bool whole = text.size() >= length && length > 0 &&
                       std::ranges::all_of(text.substr(1, length - 1), continues);
    return whole ? length : 0;
}

std::string escaped(std::string_view text, std::string_view kept) {
    std::string result;
    while (!text.empty()) {
        const auto plain = std::ranges::find_if_not(text, is_plain) - text.begin();
        result += text.substr(0, static_cast<std::size_t>(plain));
        text.remove_prefix(static_cast<std::size_t>(plain));
        if (text.empty())
            break;
        const std::size_t length = character_length(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
        const bool shown = length > 0 && !is_control(character);
        if (shown || kept.find(character) != std::string_view::npos)
            result += character;
        else
            for (const char c : character)
                result += escape_of(c);
        text.remove_prefix(character.size());
    }
    return result;
}

} // namespace pelmsim
