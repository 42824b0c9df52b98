// How bodies of messages become trees.
#pragma once

#include <cstdint>
#include <libxml/parser.h>
#include <utility>

namespace conf {

// Parses a body by xmlReadMemory() and copies its root. What libxml2 has to say about it, the host hears.
// @return the copy, or null (reported)
xmlNode* parse_copy(const char* body, int bytes) noexcept;

// Parses bodies of the internal road where they stand, and hands out the trees themselves: to whoever has
// them they are what parse_copy() would have returned. The parser behind it is kept for the next body.
class body_parser {
public:
    // The byte behind the body is the caller's, too, and as before in the end.
    // @return the root, or null (reported)
    xmlNode* parse(char* body, int bytes) noexcept;

    // Gives back what is kept.
    void forget() noexcept;

private:
    xmlNode* parse_in_place(char* body, int bytes) noexcept;
    xmlParserCtxt* take_parser(int bytes) noexcept;
    void keep_parser(xmlParserCtxt* parser) noexcept;

    xmlParserCtxt* idle_ = nullptr;
    std::uint32_t parsed_bytes_ = 0; // by the parser in use
    bool ran_out_ = false;           // of memory, which the host has heard of
};

} // namespace conf
