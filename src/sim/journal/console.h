// All that pelmsim says, on the standard output. Names, texts and paths come from peers that may be
// anything, so control characters in them are shown escaped, and this is the place that does it.
#pragma once

#include <functional>
#include <libxml/tree.h>
#include <optional>
#include <string>
#include <string_view>

namespace pelmsim {

struct event {
    std::string peer; // who sent or received it
    char direction;   // '>' to the peer, '<' from it, ' ' for what happened to it
    std::string what; // the method and what it is about
    std::string result;
    bool good = true;
    std::optional<double> ms = {}; // how long the peer took
};

enum class style { plain, bold, good, bad, faint };

// Text as it may be shown in one line: control characters, and bytes that are no UTF-8, as \n or
// \x1b. Those that are to be kept stay as they are.
std::string escaped(std::string_view text, std::string_view kept = {});

class console {
public:
    console();

    // One line: what would begin another one is shown escaped.
    void line(std::string_view text, style how = style::plain) const;

    // Lines that something else is made of, such as XML. They are indented, so that none of them
    // can be taken for one of pelmsim's own.
    void block(std::string_view lines, style how = style::plain) const;

    // One line of what a program printed.
    void output(const std::string& program, std::string_view line) const;

    // One line with the time of day.
    void report(const event& what) const;

    // A frame with its header's numbers, when they are wanted.
    void frame(const std::string& peer, char direction, unsigned seq, std::size_t length,
               const xmlNode* body) const;

    bool trace = false;
    std::function<void()> before_output; // takes the prompt away
    std::function<void()> after_output;  // shows it again

private:
    void print(const std::string& lines) const; // the prompt, if there is one, stays below them
    std::string styled(std::string_view text, style how) const;

    bool colours_;
};

} // namespace pelmsim
