// One line of a script or of the prompt, taken apart word by word.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace pelmsim {

class line_reader {
public:
    explicit line_reader(std::string line);

    bool at_end() const { return at_ == line_.size(); }

    // The next word: up to a blank that stands neither in quotes nor in the brackets of a path. A
    // word in quotes loses them. Throws problem when there is none, or a quote is not closed.
    std::string word(const char* what);
    std::string word_or(const char* otherwise) { return at_end() ? otherwise : word(""); }

    // A number if one comes next.
    int number_or(int otherwise);

    // A time if a number comes next. Throws problem when that is below 0.
    std::chrono::milliseconds time_or(std::chrono::milliseconds otherwise);

    // All that is left, as it stands; quotes around the whole are taken off. Throws problem when
    // something is to be there and is not; quotes with nothing in them are something.
    std::string rest();
    std::string rest(const char* what);

    // Throws problem when anything is left. Commands say so before they do anything.
    void finish() const;

private:
    void skip_blanks();

    std::string line_;
    std::size_t at_ = 0;
};

} // namespace pelmsim
