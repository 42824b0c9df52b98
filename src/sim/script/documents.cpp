#include "script/documents.h"

#include <algorithm>
#include <sstream>

namespace pelmsim {
namespace {

constexpr const char* digits = "0123456789";

bool is_fence(const std::string& line) { return line.starts_with("```"); }
bool is_anchor(const std::string& line) { return line.starts_with("<a id="); }

// Of "## 1. Install": Install; empty for any other line.
std::string heading_in(const std::string& line) {
    const std::size_t begin = line.find_first_not_of('#');
    if (begin == 0 || begin == std::string::npos || line[begin] != ' ')
        return {};
    std::string topic = line.substr(begin + 1);
    const std::size_t number = topic.find_first_not_of(digits);
    if (number > 0 && number != std::string::npos && topic.compare(number, 2, ". ") == 0)
        topic.erase(0, number + 2);
    return without_marks(topic);
}

// Of "**Keys.** There is" and "- `time-out`. A plugin": what stands between the marks.
std::string topic_in(const std::string& line) {
    constexpr const char* marks[][2] = {{"**", "**"}, {"- **", "**"}, {"- `", "`"}};
    for (const auto& [before, behind] : marks) {
        const std::string_view begin(before);
        const std::size_t end = line.find(behind, begin.size());
        if (!line.starts_with(begin) || end == std::string::npos)
            continue;
        std::string topic = line.substr(begin.size(), end - begin.size());
        topic.erase(topic.find_last_not_of('.') + 1);
        return without_marks(topic);
    }
    return {};
}

// Reads line by line what belongs to which topic; blocks of code have no topics in them.
class section_reader {
public:
    explicit section_reader(const document& from) : name_(from.name), lines_(from.text) {}

    std::vector<section> read() {
        bool is_code = false;
        for (std::string line; std::getline(lines_, line);) {
            is_code = is_code != is_fence(line);
            if (is_anchor(line))
                continue;
            if (is_code || !begin_topic(line))
                add(line);
        }
        drop_blanks(heading_);
        drop_blanks(paragraph_);
        return std::move(found_);
    }

private:
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    bool begin_topic(const std::string& line) {
        if (const std::string heading = heading_in(line); !heading.empty()) {
            drop_blanks(heading_);
            heading_ = begin(heading);
            paragraph_ = none;
            return true;
        }
        if (line.empty() || line.starts_with("- "))
            paragraph_ = none;
        if (const std::string topic = topic_in(line); !topic.empty())
            paragraph_ = begin(topic);
        return false;
    }

    std::size_t begin(const std::string& topic) {
        found_.push_back({name_, topic, ""});
        return found_.size() - 1;
    }

    void add(const std::string& line) {
        for (const std::size_t index : {heading_, paragraph_})
            if (index != none && !(found_[index].text.empty() && line.empty()))
                found_[index].text += line + "\n";
    }

    void drop_blanks(std::size_t index) {
        if (index != none)
            found_[index].text.erase(found_[index].text.find_last_not_of('\n') + 1);
    }

    std::string name_;
    std::istringstream lines_;
    std::vector<section> found_;
    std::size_t heading_ = none;
    std::size_t paragraph_ = none;
};

// Where the cell ends that begins there, at a bar that no backslash stands before.
std::size_t end_of_cell(const std::string& line, std::size_t begin) {
    std::size_t end = line.find('|', begin);
    while (end != std::string::npos && line[end - 1] == '\\')
        end = line.find('|', end + 1);
    return std::min(end, line.size());
}

std::string cell(const std::string& line, std::size_t begin, std::size_t end) {
    std::string text = line.substr(begin, end - begin);
    for (std::size_t bar = text.find("\\|"); bar != std::string::npos; bar = text.find("\\|", bar))
        text.erase(bar, 1);
    text.erase(text.find_last_not_of(' ') + 1);
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

} // namespace

std::vector<section> sections_of(const document& from) { return section_reader(from).read(); }

std::vector<table_row> rows_of(const document& from) {
    std::vector<table_row> rows;
    std::istringstream lines(from.text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("| ") || line.starts_with("| -"))
            continue;
        const std::size_t end = end_of_cell(line, 1);
        const std::size_t last = line.find_last_of('|');
        if (last > end)
            rows.push_back({from.name, cell(line, 1, end), cell(line, end + 1, last)});
    }
    return rows;
}

std::string without_marks(const std::string& text) {
    std::string plain;
    for (const char c : text)
        if (c != '`' && c != '*')
            plain += c;
    return plain;
}

} // namespace pelmsim
