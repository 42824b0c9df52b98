// The prompt: a line editor with completion, and a history that is kept in a file.
#pragma once

#include "script/completion.h"
#include "terminal.h"
#include "wire/loop.h"

#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace pelmsim {

// At most one at a time: the line editor is one for the whole process.
class prompt {
public:
    using completer = std::function<completion(const std::string& line)>;

    prompt(event_loop& loop, terminal& out, completer completed);
    prompt(const prompt&) = delete;
    prompt& operator=(const prompt&) = delete;
    ~prompt();

    bool has_line() const { return !lines_.empty(); }

    // The next line that was entered; nothing at the end of input.
    std::optional<std::string> next_line();

    // Forgets what is being typed.
    void drop_line();

    // Whether the next line goes on where the last one ended.
    void continues(bool it_does);

private:
    // What the line editor calls; it can be given nothing to hand back, such as an object.
    static void take_line(char* line);
    static char** complete(const char* text, int begin, int end);
    static char* next_candidate(const char* text, int state);

    void show(const char* text);
    void find_candidates(const std::string& line, std::size_t kept);

    event_loop& loop_;
    terminal& out_;
    completer completed_;
    const std::string history_file_; // none when empty
    const char* text_;               // that the line begins with
    std::deque<std::optional<std::string>> lines_;
    std::vector<std::string> candidates_; // ends of a word that may stand where one is completed
};

} // namespace pelmsim
