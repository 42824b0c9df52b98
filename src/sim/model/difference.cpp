#include "model/difference.h"

#include "model/keys.h"

#include <algorithm>
#include <span>

namespace pelmsim {
namespace {

constexpr std::size_t most_lines = 60;
constexpr std::size_t most_cells = std::size_t{1} << 22U; // of the table that pairs two lists

struct child {
    const xmlNode* node;
    std::string text; // in one line
    std::string step; // of an element: its name with keys, as in a path
};

// Which of two lists stand for each other, in the order of both.
using pairing = std::vector<std::pair<std::size_t, std::size_t>>;

// How well two nodes go together: it is better to find one unchanged than two that are changed.
unsigned weight(const child& expected, const child& got) {
    if (expected.text == got.text)
        return 3;
    return !expected.step.empty() && expected.step == got.step ? 1 : 0;
}

using children = std::span<const child>;

// The best of all pairings, by the weights of what is left of both lists from each place on.
class pairing_table {
public:
    pairing_table(children expected, children got)
        : expected_(expected),
          got_(got),
          columns_(got.size() + 1),
          best_((expected.size() + 1) * columns_) {
        for (std::size_t row = expected.size(); row-- > 0;)
            for (std::size_t column = got.size(); column-- > 0;)
                at(row, column) =
                    std::max({at(row + 1, column), at(row, column + 1),
                              weight(expected[row], got[column]) + at(row + 1, column + 1)});
    }

    pairing read() {
        pairing found;
        std::size_t row = 0;
        std::size_t column = 0;
        while (row < expected_.size() && column < got_.size())
            if (at(row, column) == at(row + 1, column))
                ++row;
            else if (at(row, column) == at(row, column + 1))
                ++column;
            else
                found.emplace_back(row++, column++);
        return found;
    }

private:
    unsigned& at(std::size_t row, std::size_t column) { return best_[row * columns_ + column]; }

    const children expected_;
    const children got_;
    const std::size_t columns_;
    std::vector<unsigned> best_;
};

// Lists that are too long for a table are compared place by place.
pairing pairs_between(children expected, children got) {
    if ((expected.size() + 1) * (got.size() + 1) <= most_cells)
        return pairing_table(expected, got).read();
    pairing found;
    for (std::size_t place = 0; place < std::min(expected.size(), got.size()); ++place)
        if (weight(expected[place], got[place]) > 0)
            found.emplace_back(place, place);
    return found;
}

// All pairs up to the place, which is the last of them, from which on both lists are the same. What
// is left between their common beginning and end is short as a rule.
pairing pairs_of(children expected, children got) {
    const auto is_same = [](const child& one, const child& other) {
        return one.text == other.text;
    };
    const auto begin = static_cast<std::size_t>(std::ranges::mismatch(expected, got, is_same).in1 -
                                                expected.begin());
    expected = expected.subspan(begin);
    got = got.subspan(begin);
    while (!expected.empty() && !got.empty() && is_same(expected.back(), got.back())) {
        expected = expected.first(expected.size() - 1);
        got = got.first(got.size() - 1);
    }
    pairing pairs;
    for (std::size_t place = 0; place < begin; ++place)
        pairs.emplace_back(place, place);
    for (const auto& [row, column] : pairs_between(expected, got))
        pairs.emplace_back(begin + row, begin + column);
    pairs.emplace_back(begin + expected.size(), begin + got.size());
    return pairs;
}

// The tag that an element's text begins with.
std::string start_tag(const std::string& text) {
    char quote = '\0';
    std::size_t end = 0;
    for (; quote != '\0' || text[end] != '>'; ++end)
        if (text[end] == quote)
            quote = '\0';
        else if (quote == '\0' && (text[end] == '"' || text[end] == '\''))
            quote = text[end];
    return text.substr(0, end + 1);
}

std::string marked(const char* mark, const std::string& lines) {
    std::string result = mark;
    for (const char c : lines)
        result += c == '\n' ? std::string("\n") + mark : std::string(1, c);
    return result + "\n";
}

std::string marked(const char* mark, const child& which) {
    return marked(mark, pretty_node(which.node));
}

class comparison {
public:
    comparison(const tree& expected, const tree& got) {
        keys_.learn(expected);
        keys_.learn(got);
        compare(expected.root(), got.root(), "");
    }

    const std::string& lines() const { return lines_; }

private:
    std::string step_of(const xmlNode* node) const;
    std::vector<child> children_of(const xmlNode* parent) const;
    void compare(const xmlNode* expected, const xmlNode* got, const std::string& path);

    key_book keys_;
    std::string lines_;
};

std::string comparison::step_of(const xmlNode* node) const {
    if (node->type != XML_ELEMENT_NODE)
        return {};
    const bool has_prefix = node->ns != nullptr && node->ns->prefix != nullptr;
    data_path path;
    path.steps.push_back({has_prefix ? reinterpret_cast<const char*>(node->ns->prefix) : "",
                          local_name(node), keys_.keys_of(node)});
    return path.text();
}

std::vector<child> comparison::children_of(const xmlNode* parent) const {
    std::vector<child> found;
    for (const xmlNode* node = parent->children; node != nullptr; node = node->next)
        found.push_back({node, compact_node(node), step_of(node)});
    return found;
}

// The step of one among its siblings, of which several may have the same.
std::string step_among(const std::vector<child>& all, std::size_t place) {
    const std::string& step = all[place].step;
    const auto is_such = [&](const child& each) { return each.step == step; };
    if (std::ranges::count_if(all, is_such) == 1)
        return step;
    const auto before =
        std::count_if(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(place), is_such);
    return step + "[" + std::to_string(before + 1) + "]";
}

bool are_branches(const child& one, const child& other) {
    return !is_leaf(one.node) && !is_leaf(other.node);
}

// Of two elements that stand for each other, what is not the same, less what stands below them.
std::string change_of(const child& expected, const child& got) {
    if (!are_branches(expected, got))
        return marked("- ", expected) + marked("+ ", got);
    const std::string wanted = start_tag(expected.text);
    const std::string came = start_tag(got.text);
    return wanted == came ? "" : marked("- ", wanted) + marked("+ ", came);
}

void comparison::compare(const xmlNode* expected, const xmlNode* got, const std::string& path) {
    const std::vector<child> wanted = children_of(expected);
    const std::vector<child> came = children_of(got);
    std::string here;
    pairing below;
    std::size_t row = 0;
    std::size_t column = 0;
    for (const auto& [next_row, next_column] : pairs_of(wanted, came)) {
        for (; row < next_row; ++row)
            here += marked("- ", wanted[row]);
        for (; column < next_column; ++column)
            here += marked("+ ", came[column]);
        if (row < wanted.size() && wanted[row].text != came[column].text) {
            here += change_of(wanted[row], came[column]);
            if (are_branches(wanted[row], came[column]))
                below.emplace_back(row, column);
        }
        ++row;
        ++column;
    }
    if (!here.empty())
        lines_ += (path.empty() ? "/" : path) + "\n" + here;
    for (const auto& [place, its_place] : below)
        compare(wanted[place].node, came[its_place].node, path + step_among(wanted, place));
}

tree tree_of(const xmlNode* first) {
    tree made;
    attach(made.root(), copy_nodes(first));
    return made;
}

std::string first_lines(std::string text) {
    const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n'));
    if (lines > most_lines) {
        std::size_t shown = 0;
        for (std::size_t line = 0; line < most_lines; ++line)
            shown = text.find('\n', shown) + 1;
        text.resize(shown);
        text += "and " + std::to_string(lines - most_lines) + " lines more\n";
    }
    if (!text.empty())
        text.pop_back();
    return text;
}

} // namespace

std::string describe_difference(const xmlNode* expected, const xmlNode* got) {
    return first_lines(comparison(tree_of(expected), tree_of(got)).lines());
}

} // namespace pelmsim
