// Cases in rows, whose failures say which row they are of.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// Hands out the elements of a range or an array in turn; each failure meanwhile names the row.
template <class Range> class traced {
public:
    explicit traced(Range&& rows, const char* file = __builtin_FILE(), int line = __builtin_LINE())
        : rows_(std::forward<Range>(rows)), file_(file), line_(line) {}

    struct position {
        traced* owner;
        std::size_t index;

        decltype(auto) operator*() const { return owner->row(index); }
        void operator++() { ++index; }
        bool operator!=(position other) const { return index != other.index; }
    };
    position begin() { return {this, 0}; }
    position end() { return {this, std::size(rows_)}; }

private:
    decltype(auto) row(std::size_t index) {
        trace_.emplace(file_, line_, "row " + std::to_string(index + 1));
        return std::begin(rows_)[static_cast<std::ptrdiff_t>(index)];
    }

    Range rows_;
    const char* const file_;
    const int line_;
    std::optional<testing::ScopedTrace> trace_;
};
template <class Range> traced(Range&&) -> traced<Range>;

// What stands before, between and behind the marks in a text, without blanks around.
std::vector<std::string> pieces_of(const std::string& text, char mark);

// A text without its line ends and what lines begin with.
std::string joined(const std::string& text);

// A row for each line of a text, which begins with a line end as a raw string does: the pieces
// between its bars. A line that has more or fewer of them fails the test.
template <std::size_t columns>
std::vector<std::array<std::string, columns>> table(const std::string& text) {
    std::vector<std::array<std::string, columns>> rows;
    for (const std::string& line : pieces_of(text.substr(1), '\n')) {
        std::vector<std::string> cells = pieces_of(line, '|');
        EXPECT_EQ(cells.size(), columns) << "row " << rows.size() + 1 << ": " << line;
        cells.resize(columns);
        std::move(cells.begin(), cells.end(), rows.emplace_back().begin());
    }
    return rows;
}
