// What a command is given, taken apart word by word.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace pelmsim {

class line_reader {
public:
    line_reader() = default;
    line_reader(const line_reader&) = delete;
    line_reader& operator=(const line_reader&) = delete;
    virtual ~line_reader() = default;

    virtual bool at_end() const = 0;

    // The next word. Throws problem when there is none.
    std::string word(const char* what);
    std::string word_or(const char* otherwise) { return at_end() ? otherwise : take_word(); }

    // The next word, a number. Throws problem when it is none.
    int number(const char* what);

    // A number if one comes next.
    int number_or(int otherwise);

    // A time if a number comes next. Throws problem when that is below 0.
    std::chrono::milliseconds time_or(std::chrono::milliseconds otherwise);

    // All that is left, as it stands. Throws problem when something is to be there and is not; a
    // text that is given and empty is something.
    std::string rest() { return at_end() ? "" : take_rest(); }
    std::string rest(const char* what);

    // Throws problem when anything is left. Commands say so before they do anything.
    void finish() const;

    // To read once more what has come since.
    std::size_t place() const { return at_; }
    void return_to(std::size_t place) { at_ = place; }

protected:
    std::size_t at_ = 0;

private:
    // All are called only when something is left.
    virtual std::string take_word() = 0;
    virtual std::string take_rest() = 0;
    virtual std::string left() const = 0;          // as messages show it
    virtual std::string_view upcoming() const = 0; // where a number may stand
};

// One line of a script or of the prompt.
class script_line final : public line_reader {
public:
    explicit script_line(std::string line);

    bool at_end() const override { return at_ == line_.size(); }

private:
    // A word goes up to a blank that stands neither in quotes nor in the brackets of a path. In
    // quotes it loses them, as the rest of a line does. Both throw problem when a quote is not
    // closed.
    std::string take_word() override;
    std::string take_rest() override;
    std::string left() const override { return line_.substr(at_); }
    std::string_view upcoming() const override;

    void skip_blanks();

    std::string line_;
};

// Words that came one by one, and are taken as they stand; a text is the last of them.
class given_words final : public line_reader {
public:
    explicit given_words(std::vector<std::string> words) : words_(std::move(words)) {}

    bool at_end() const override { return at_ == words_.size(); }

private:
    std::string take_word() override { return words_[at_++]; }
    std::string take_rest() override; // throws problem when another word follows
    std::string left() const override { return words_[at_]; }
    std::string_view upcoming() const override { return words_[at_]; }

    std::vector<std::string> words_;
};

} // namespace pelmsim
