// The prompt: a line editor with history and completion.
#pragma once

#include "terminal.h"
#include "wire/loop.h"

#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace pelmsim {

// At most one at a time: the line editor has global state.
class prompt {
public:
    prompt(event_loop& loop, terminal& out, std::function<std::vector<std::string>()> vocabulary);
    prompt(const prompt&) = delete;
    prompt& operator=(const prompt&) = delete;
    ~prompt();

    bool has_line() const { return !lines_.empty(); }

    // The next line that was entered; nothing at the end of input.
    std::optional<std::string> next_line();

private:
    static void take(char* line);
    static char** complete(const char* text, int begin, int end);

    event_loop& loop_;
    terminal& out_;
    std::function<std::vector<std::string>()> vocabulary_;
    std::deque<std::optional<std::string>> lines_;
};

} // namespace pelmsim
