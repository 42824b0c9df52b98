// All that pelmsim says, on the standard output.
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

class console {
public:
    console();

    // Prints whole lines; the prompt, if there is one, stays below them.
    void print(std::string_view lines, style how = style::plain);

    // One line with the time of day.
    void report(const event& what);

    // A frame with its header's numbers, when they are wanted.
    void frame(const std::string& peer, char direction, unsigned seq, std::size_t length,
               const xmlNode* body);

    bool trace = false;
    std::function<void()> before_output; // takes the prompt away
    std::function<void()> after_output;  // shows it again

private:
    std::string styled(std::string_view text, style how) const;

    bool colours_;
};

} // namespace pelmsim
