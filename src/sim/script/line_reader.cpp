#include "script/line_reader.h"

#include "model/problem.h"

#include <charconv>

namespace pelmsim {
namespace {

bool is_blank(char c) { return c == ' ' || c == '\t'; }

// Where the quoted text that begins here ends, behind the closing quote. Throws problem.
std::size_t end_of_quotes(const std::string& line, std::size_t at) {
    const std::size_t begin = at;
    const char quote = line[at++];
    while (at < line.size() && line[at] != quote)
        at += line[at] == '\\' ? 2 : 1;
    if (at >= line.size())
        throw problem("the quote is not closed that begins at " + line.substr(begin));
    return at + 1;
}

// Takes the quotes off, and the backslashes that kept a quote or a backslash from its meaning.
std::string unquoted(const std::string& text) {
    std::string result;
    for (std::size_t at = 1; at + 1 < text.size(); ++at) {
        if (text[at] == '\\' && (text[at + 1] == text[0] || text[at + 1] == '\\'))
            ++at;
        result += text[at];
    }
    return result;
}

bool is_quote(char c) { return c == '"' || c == '\''; }

// As a whole.
bool is_quoted(const std::string& text) {
    return !text.empty() && is_quote(text[0]) && end_of_quotes(text, 0) == text.size();
}

// Within brackets: one inside a bare key value is a character like any other.
bool begins_value(const std::string& line, std::size_t at) {
    return line[at - 1] == '=' || is_blank(line[at - 1]);
}

} // namespace

std::string line_reader::word(const char* what) {
    if (at_end())
        throw problem(std::string(what) + " is missing");
    return take_word();
}

int line_reader::number(const char* what) {
    const std::size_t begin = place();
    const int found = number_or(0);
    if (place() == begin)
        throw problem(std::string(what) + " is missing: a number");
    return found;
}

int line_reader::number_or(int otherwise) {
    int number = 0;
    const std::string_view next = at_end() ? std::string_view() : upcoming();
    const char* const end_of_word = next.data() + next.size();
    const auto [end, error] = std::from_chars(next.data(), end_of_word, number);
    if (error != std::errc{} || end != end_of_word)
        return otherwise;
    (void)take_word();
    return number;
}

std::chrono::milliseconds line_reader::time_or(std::chrono::milliseconds otherwise) {
    const std::chrono::milliseconds given(number_or(static_cast<int>(otherwise.count())));
    if (given < std::chrono::milliseconds::zero())
        throw problem(std::to_string(given.count()) + " is no number of milliseconds");
    return given;
}

std::string line_reader::rest(const char* what) {
    if (at_end())
        throw problem(std::string(what) + " is missing");
    return take_rest();
}

void line_reader::finish() const {
    if (!at_end())
        throw problem("nothing more was expected at \"" + left() + "\"");
}

script_line::script_line(std::string line) : line_(std::move(line)) {
    line_.erase(line_.find_last_not_of(" \t\r") + 1);
    skip_blanks();
}

void script_line::skip_blanks() {
    while (!at_end() && is_blank(line_[at_]))
        ++at_;
}

std::string script_line::take_word() {
    const std::size_t begin = at_;
    for (bool bracketed = false; !at_end() && (bracketed || !is_blank(line_[at_]));) {
        bracketed = line_[at_] == '[' || (bracketed && line_[at_] != ']');
        const bool opens = at_ == begin || (bracketed && begins_value(line_, at_));
        at_ = is_quote(line_[at_]) && opens ? end_of_quotes(line_, at_) : at_ + 1;
    }
    const std::string found = line_.substr(begin, at_ - begin);
    skip_blanks();
    return is_quoted(found) ? unquoted(found) : found;
}

std::string script_line::take_rest() {
    const std::string text = line_.substr(at_);
    at_ = line_.size();
    return is_quoted(text) ? unquoted(text) : text;
}

std::string_view script_line::upcoming() const {
    const std::string_view line = line_;
    return line.substr(at_, line.find_first_of(" \t", at_) - at_);
}

std::string given_words::take_rest() {
    std::string text = take_word();
    finish();
    return text;
}

} // namespace pelmsim
