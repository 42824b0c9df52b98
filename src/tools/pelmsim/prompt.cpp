#include "prompt.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <editline/readline.h>
#include <unistd.h>

namespace pelmsim {
namespace {

constexpr const char* text_before = "pelmsim> ";
constexpr const char* text_within = "       > ";
constexpr int most_lines_kept = 1000;
char blanks[] = " \t";
constexpr const char* clear_line = "\r\033[K";

prompt* the_prompt = nullptr; // the one that the line editor works for

std::string history_file() {
    const char* const home = std::getenv("HOME");
    return home == nullptr ? "" : std::string(home) + "/.pelmsim_history";
}

} // namespace

prompt::prompt(event_loop& loop, terminal& out, completer completed)
    : loop_(loop),
      out_(out),
      completed_(std::move(completed)),
      history_file_(history_file()),
      text_(text_before) {
    the_prompt = this;
    using_history();
    stifle_history(most_lines_kept);
    (void)read_history(history_file_.c_str()); // there may be none yet
    rl_attempted_completion_function = complete;
    rl_completer_word_break_characters = blanks;
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
    (void)write_history(history_file_.c_str()); // a session is worth more than its history
    the_prompt = nullptr;
}

void prompt::take_line(char* line) {
    if (line == nullptr)
        return (void)the_prompt->lines_.emplace_back(std::nullopt);
    if (*line != '\0')
        add_history(line);
    the_prompt->lines_.emplace_back(line);
    std::free(line);
    // It leaves the terminal as it was after a line.
    rl_callback_handler_install(the_prompt->text_, take_line);
}

void prompt::drop_line() {
    (void)std::fputs("^C\n", stdout);
    (void)rl_reset_terminal(nullptr); // which also gives the terminal back
    rl_prep_terminal(1);
    show(text_before);
}

void prompt::continues(bool it_does) {
    const char* const text = it_does ? text_within : text_before;
    if (text != text_)
        show(text);
}

void prompt::show(const char* text) {
    text_ = text;
    (void)std::fputs(clear_line, stdout);
    rl_callback_handler_install(text_, take_line);
    rl_forced_update_display();
}

char** prompt::complete(const char* text, int, int end) {
    rl_attempted_completion_over = 1; // no file names
    const std::string line(rl_line_buffer, static_cast<std::size_t>(end));
    the_prompt->find_candidates(line, std::strlen(text));
    return rl_completion_matches(text, next_candidate);
}

// To the line editor a word may begin later than it does, at a blank between brackets: of each it
// is given what is behind that.
void prompt::find_candidates(const std::string& line, std::size_t kept) {
    completion found = completed_(line);
    const std::size_t before = found.begun.size() - std::min(kept, found.begun.size());
    for (std::string& word : found.words)
        word.erase(0, before);
    candidates_ = std::move(found.words);
    const bool goes_on = candidates_.size() == 1 && candidates_.front().ends_with('/');
    rl_completion_append_character = goes_on ? 0 : ' ';
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
