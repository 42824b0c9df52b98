#include "recording/secrets.h"

#include "model/problem.h"

#include <algorithm>
#include <cctype>

namespace pelmsim {
namespace {

constexpr std::size_t shortest_long = 4;
constexpr std::size_t most_compared = 64; // bytes of a value
constexpr std::size_t most_known = 65536;
constexpr std::size_t most_searched = std::size_t{1024} * 1024;

std::string_view trimmed(std::string_view text) {
    constexpr const char* blanks = " \t\r\n";
    const std::size_t begin = std::min(text.find_first_not_of(blanks), text.size());
    text.remove_prefix(begin);
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

// Letters of other scripts are of several bytes, all of them above ASCII.
bool is_of_word(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x80 || std::isalnum(byte) != 0;
}

// Whether what stands there is no part of a longer word.
bool is_word(std::string_view text, std::size_t at, std::size_t length) {
    const std::size_t end = at + length;
    const bool goes_on_before = at > 0 && is_of_word(text[at]) && is_of_word(text[at - 1]);
    const bool goes_on_behind =
        end < text.size() && is_of_word(text[end - 1]) && is_of_word(text[end]);
    return !goes_on_before && !goes_on_behind;
}

// A peer may give any text for a path, and many can be read as one.
bool has_names(const data_path& path) {
    return std::ranges::all_of(path.steps, [](const path_step& step) {
        return is_name(step.prefix) && is_name(step.name) &&
               std::ranges::all_of(step.keys, [](const auto& key) { return is_name(key.name); });
    });
}

} // namespace

bool is_name(std::string_view text) {
    return std::ranges::all_of(
        text, [](char c) { return is_of_word(c) || c == '-' || c == '_' || c == '.'; });
}

secrets::secrets(const std::vector<std::string>& paths) {
    for (const std::string& each : paths) {
        if (!each.starts_with('/'))
            throw problem("\"" + each + "\" is not a data path: it does not begin with a slash");
        paths_.emplace_back(each);
        for (path_step& step : paths_.back().steps)
            step.prefix.clear(); // what another prefix would keep apart is rather left out, too
    }
}

bool secrets::are_at(const data_path& path) const {
    return std::ranges::any_of(paths_, [&](const data_path& each) { return each.covers(path); });
}

void secrets::learn(std::string_view value) {
    for (std::string_view left = value; !left.empty();) {
        const std::size_t end = std::min(left.find('\n'), left.size());
        learn_line(trimmed(left.substr(0, end)));
        left.remove_prefix(std::min(end + 1, left.size()));
    }
}

bool secrets::begins_with_known(std::string_view text) const {
    const auto behind = long_.upper_bound(text);
    return behind != long_.begin() && text.starts_with(*std::prev(behind));
}

void secrets::learn_line(std::string_view line) {
    if (line.empty() || line == redaction_mark || are_too_many_)
        return;
    const std::string_view begin = line.substr(0, most_compared);
    if (line.size() < shortest_long) {
        short_.emplace(line);
    } else if (!begins_with_known(begin)) {
        const auto place = long_.emplace(begin).first;
        while (std::next(place) != long_.end() && std::next(place)->starts_with(begin))
            long_.erase(std::next(place));
    }
    are_too_many_ = short_.size() + long_.size() > most_known;
}

bool secrets::stand_in(std::string_view text) const {
    if (are_too_many_ || text.size() > most_searched)
        return true;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const std::string_view left = text.substr(at, most_compared);
        if (begins_with_known(left))
            return true;
        for (std::size_t length = 1; length < shortest_long && length <= left.size(); ++length)
            if (short_.contains(left.substr(0, length)) && is_word(text, at, length))
                return true;
    }
    return false;
}

// It names a leaf below the element, or the element's own text.
bool secrets::holds_key(const data_path& up_to_step, const path_key& key) const {
    if (are_at(up_to_step))
        return true;
    data_path leaf = up_to_step;
    if (key.name != ".")
        leaf.steps.push_back({"", key.name, {}});
    return are_at(leaf);
}

bool secrets::hide_keys(data_path& path) {
    bool is_any = false;
    data_path up_to_step;
    for (path_step& step : path.steps) {
        up_to_step.steps.push_back({"", step.name, step.keys});
        for (path_key& key : step.keys) {
            const bool is_secret = holds_key(up_to_step, key);
            if (is_secret)
                learn(key.value);
            if (is_secret || stand_in(key.value)) {
                key.value = redaction_mark;
                is_any = true;
            }
        }
    }
    return is_any;
}

std::string secrets::without_values(const std::string& path) {
    try {
        data_path parts(path);
        if (!has_names(parts))
            return redaction_mark;
        const std::string shown = hide_keys(parts) ? parts.text() : path;
        return stand_in(shown) ? std::string("/") + redaction_mark : shown;
    } catch (const problem&) {
        return path.empty() ? "" : redaction_mark;
    }
}

} // namespace pelmsim
