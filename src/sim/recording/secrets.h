// What is not to be in a recording: the values at some paths, and those that were seen there.
#pragma once

#include "model/path.h"

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace pelmsim {

inline constexpr const char* redaction_mark = "(redacted)";

// Whether a text may be a name: it has letters, digits, and what names have besides, or nothing.
bool is_name(std::string_view text);

class secrets {
public:
    explicit secrets(const std::vector<std::string>& paths); // throws problem

    const std::vector<data_path>& paths() const { return paths_; }

    // Whether the path is one of them, or lies below one.
    bool are_at(const data_path& path) const;

    // From now on the value is known, and so is each of its lines.
    void learn(std::string_view value);

    // Whether a known value stands in the text: a short one as a word of its own, any other
    // anywhere. When there are too many to be known, everything may be one.
    bool stand_in(std::string_view text) const;

    // The text, or the mark in its place.
    std::string without(const std::string& text) const {
        return stand_in(text) ? redaction_mark : text;
    }

    // The path, or the mark in place of key values, or of all of it. Learns the values.
    std::string without_values(const std::string& path);

private:
    bool begins_with_known(std::string_view text) const;
    void learn_line(std::string_view line);
    bool holds_key(const data_path& up_to_step, const path_key& key) const;
    bool hide_keys(data_path& path);

    std::vector<data_path> paths_;
    std::set<std::string, std::less<>> short_; // each is a word
    // The first bytes of the others. None begins with another one, so which of them a text begins
    // with is told by looking at one alone: that which stands just before the text in this order.
    std::set<std::string, std::less<>> long_;
    bool are_too_many_ = false;
};

} // namespace pelmsim
