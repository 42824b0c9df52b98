#include "prompt.h"

#include "journal/escaped.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <editline/readline.h>
#include <unistd.h>

namespace pelmsim {
namespace {

constexpr const char* text_before = "pelmsim> ";
constexpr const char* clear_line = "\r\033[K";

prompt* the_prompt = nullptr; // the one that the line editor works for

} // namespace

prompt::prompt(event_loop& loop, terminal& out,
               std::function<std::vector<std::string>()> vocabulary)
    : loop_(loop), out_(out), vocabulary_(std::move(vocabulary)) {
    the_prompt = this;
    rl_attempted_completion_function = complete;
    rl_callback_handler_install(text_before, take_line);
    loop_.watch(STDIN_FILENO, POLLIN, [](short) { rl_callback_read_char(); });
    out_.before_output = [] { (void)std::fputs(clear_line, stdout); };
    out_.after_output = [] { rl_forced_update_display(); };
}

prompt::~prompt() {
    loop_.forget(STDIN_FILENO);
    out_.before_output = nullptr;
    out_.after_output = nullptr;
    rl_callback_handler_remove();
    (void)std::fputs(clear_line, stdout);
    the_prompt = nullptr;
}

void prompt::take_line(char* line) {
    if (line == nullptr)
        return (void)the_prompt->lines_.emplace_back(std::nullopt);
    if (*line != '\0')
        add_history(line);
    the_prompt->lines_.emplace_back(line);
    std::free(line);
    rl_callback_handler_install(text_before,
                                take_line); // it leaves the terminal as it was after a line
}

char** prompt::complete(const char* text, int, int) {
    rl_attempted_completion_over = 1; // no file names
    the_prompt->find_candidates(text);
    return rl_completion_matches(text, next_candidate);
}

void prompt::find_candidates(const char* text) {
    candidates_ = vocabulary_();
    std::erase_if(candidates_, [&](const std::string& word) {
        return !word.starts_with(text) || word != escaped(word); // a terminal obeys the latter
    });
}

// Called again and again: the next word, for the line editor to free.
char* prompt::next_candidate(const char*, int) {
    auto& left = the_prompt->candidates_;
    if (left.empty())
        return nullptr;
    char* const word = strdup(left.back().c_str());
    left.pop_back();
    return word;
}

std::optional<std::string> prompt::next_line() {
    std::optional<std::string> line = std::move(lines_.front());
    lines_.pop_front();
    return line;
}

} // namespace pelmsim
