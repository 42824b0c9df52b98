#include "script/syntax.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <string_view>

namespace pelmsim {
namespace {

constexpr std::size_t most_words = 200; // that are followed, each by some calls within each other

// A part of the grammar: a word, or parts that follow each other, or of which there is one.
struct part {
    enum class shape { word, sequence, choice };

    shape is = shape::word;
    std::string word = {};
    std::vector<part> parts = {};
    bool is_optional = false;
    bool is_repeated = false;
};

class grammar_reader {
public:
    explicit grammar_reader(std::string_view text) : left_(text) {}

    part read() {
        part all{.is = part::shape::choice};
        do
            all.parts.push_back(read_sequence());
        while (take(" | "));
        return all;
    }

private:
    bool take(std::string_view text) {
        const bool is_next = left_.starts_with(text);
        left_.remove_prefix(is_next ? text.size() : 0);
        return is_next;
    }

    part read_sequence() {
        part made{.is = part::shape::sequence};
        do
            made.parts.push_back(read_item());
        while (!left_.starts_with(" | ") && take(" "));
        return made;
    }

    part read_item() {
        part made;
        if (left_.starts_with('[') || left_.starts_with('(')) {
            const bool is_optional = left_.starts_with('[');
            left_.remove_prefix(1);
            made = read();
            made.is_optional = is_optional;
            left_.remove_prefix(left_.empty() ? 0 : 1); // the other bracket
        } else {
            made = {.is = part::shape::choice};
            do
                made.parts.push_back({.word = read_word()});
            while (take("|"));
        }
        made.is_repeated = take("...");
        return made;
    }

    std::string read_word() {
        const std::size_t end =
            std::min({left_.find_first_of(" |[]()"), left_.find("...", 1), left_.size()});
        std::string word(left_.substr(0, end));
        left_.remove_prefix(end);
        return word;
    }

    std::string_view left_;
};

// Follows words through a grammar, in all ways that they may be meant.
class follower {
public:
    explicit follower(const std::vector<std::string>& words) : words_(words) {}

    std::vector<std::string> next_in(const part& grammar) {
        follow(grammar, 0, [](std::size_t) {});
        return found_;
    }

private:
    using going_on = std::function<void(std::size_t)>; // behind so many words

    void follow(const part& what, std::size_t at, const going_on& then) {
        if (what.is_optional)
            then(at);
        follow_some(what, at, then);
    }

    void follow_some(const part& what, std::size_t at, const going_on& then) {
        follow_once(what, at, [&](std::size_t now_at) {
            then(now_at);
            if (what.is_repeated && now_at > at)
                follow_some(what, now_at, then);
        });
    }

    void follow_once(const part& what, std::size_t at, const going_on& then) {
        if (what.is == part::shape::word)
            follow_word(what.word, at, then);
        else if (what.is == part::shape::choice)
            for (const part& each : what.parts)
                follow(each, at, then);
        else
            follow_sequence(what.parts, 0, at, then);
    }

    void follow_sequence(const std::vector<part>& parts, std::size_t index, std::size_t at,
                         const going_on& then) {
        if (index == parts.size())
            return then(at);
        follow(parts[index], at,
               [&, index](std::size_t now_at) { follow_sequence(parts, index + 1, now_at, then); });
    }

    void follow_word(const std::string& symbol, std::size_t at, const going_on& then) {
        if (at < words_.size()) {
            if (is_placeholder(symbol) || symbol == words_[at])
                then(at + 1);
        } else if (std::ranges::find(found_, symbol) == found_.end()) {
            found_.push_back(symbol);
        }
    }

    const std::vector<std::string>& words_;
    std::vector<std::string> found_;
};

} // namespace

bool is_placeholder(const std::string& symbol) {
    return std::ranges::none_of(symbol, [](unsigned char c) { return std::islower(c) != 0; });
}

std::vector<std::string> next_symbols(const std::string& arguments,
                                      const std::vector<std::string>& before) {
    if (arguments.empty() || before.size() > most_words)
        return {};
    return follower(before).next_in(grammar_reader(arguments).read());
}

std::vector<std::string> first_keywords(const std::string& arguments) {
    std::vector<std::string> symbols = next_symbols(arguments, {});
    std::erase_if(symbols, is_placeholder);
    return symbols;
}

} // namespace pelmsim
