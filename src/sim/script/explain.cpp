#include "script/explain.h"

#include "model/problem.h"
#include "script/documents.h"
#include "script/explain_values.h"
#include "script/suggest.h"

#include <algorithm>
#include <cctype>

namespace pelmsim {
namespace {

std::string small(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::string without_blanks_around(const std::string& text) {
    const std::size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
    return text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

bool is_capital(char c) { return std::isupper(static_cast<unsigned char>(c)) != 0; }

// The two of "`Send failed(REASON).` `Read failed(REASON).`".
std::vector<std::string> marked_in(const std::string& about) {
    std::vector<std::string> marked;
    for (std::size_t begin = about.find('`'); begin != std::string::npos;) {
        const std::size_t end = about.find('`', begin + 1);
        if (end == std::string::npos)
            break;
        marked.push_back(about.substr(begin + 1, end - begin - 1));
        begin = about.find('`', end + 1);
    }
    return marked;
}

// What stands in a message between its values, which are in capitals. The level that syslog shows
// is left out, as those who ask may leave it out.
std::vector<std::string> fixed_texts(std::string message) {
    if (message.starts_with('['))
        message.erase(0, message.find(' ') + 1);
    std::vector<std::string> texts(1);
    for (std::size_t at = 0; at < message.size();) {
        std::size_t end = at;
        while (end < message.size() && is_capital(message[end]))
            ++end;
        const bool is_value = end - at > 1 && message.compare(at, end - at, "WARN") != 0;
        end = std::max(end, at + 1);
        if (is_value)
            texts.emplace_back();
        else
            texts.back() += message.substr(at, end - at);
        at = end;
    }
    return texts;
}

// Whether the message is in the text, whatever its values are. The dot at its end may be missing.
bool is_in(const std::string& text, const std::string& message) {
    std::vector<std::string> texts = fixed_texts(message);
    texts.back().erase(texts.back().find_last_not_of(").") + 1);
    std::size_t at = 0;
    for (const std::string& each : texts) {
        at = text.find(each, at);
        if (at == std::string::npos)
            return false;
        at += each.size();
    }
    return at > 0;
}

bool contains(const std::string& text, const std::string& what) {
    return small(text).find(small(what)) != std::string::npos;
}

std::vector<table_row> all_rows() {
    std::vector<table_row> all;
    for (const document& each : all_documents())
        for (table_row& row : rows_of(each))
            all.push_back(std::move(row));
    return all;
}

std::vector<section> all_sections() {
    std::vector<section> all;
    for (const document& each : all_documents())
        for (section& one : sections_of(each))
            all.push_back(std::move(one));
    return all;
}

std::string as_lines(const table_row& row) {
    return without_marks(row.about) + "\n    " + row.text + "\n";
}

template <class Fits> std::string rows_that(const Fits& fits) {
    std::string lines;
    for (const table_row& row : all_rows())
        if (fits(row))
            lines += as_lines(row);
    return lines;
}

bool is_of_messages(const table_row& row) { return row.document == "messages.md"; }

std::string explain_message(const std::string& what) {
    return rows_that([&](const table_row& row) {
        return is_of_messages(row) &&
               std::ranges::any_of(marked_in(row.about), [&](const std::string& message) {
                   return is_in(what, message);
               });
    });
}

// Some words of one.
std::string explain_piece_of_message(const std::string& what) {
    if (what.find(' ') == std::string::npos)
        return {};
    return rows_that([&](const table_row& row) {
        return is_of_messages(row) && contains(without_marks(row.about), what);
    });
}

std::string explain_topic(const std::string& what) {
    std::string text;
    for (const section& each : all_sections())
        if (small(each.topic) == small(what))
            text += each.topic + " (" + each.document + ")\n\n" + each.text + "\n";
    return text;
}

// What tables say of a command, an option or a word: with what follows it.
std::string explain_entry(const std::string& what) {
    return rows_that([&](const table_row& row) {
        return !is_of_messages(row) &&
               (row.about == what ||
                std::ranges::any_of(marked_in(row.about), [&](const std::string& each) {
                    return each == what || each.starts_with(what + " ");
                }));
    });
}

// When there is but one, its text.
std::string explain_piece_of_topic(const std::string& what) {
    std::string found;
    std::string names;
    std::size_t count = 0;
    for (const section& each : all_sections()) {
        if (!contains(each.topic, what))
            continue;
        ++count;
        found = each.topic;
        names += "\n    " + each.topic;
    }
    return count == 0 ? "" : count == 1 ? explain_topic(found) : "topics with that:" + names;
}

std::vector<std::string> topics() {
    std::vector<std::string> names;
    for (const section& each : all_sections())
        names.push_back(each.topic);
    return names;
}

std::string list_topics() {
    std::string lines = "topics:";
    for (const std::string& each : topics())
        lines += "\n    " + each;
    return lines;
}

// In this order, until one of them has something to say.
constexpr std::string (*explainers[])(const std::string& what) = {
    explain_message, explain_number,           explain_operation, explain_path,
    explain_topic,   explain_piece_of_message, explain_entry,     explain_piece_of_topic,
};

} // namespace

std::string explain(const std::string& question) {
    const std::string what = without_blanks_around(question);
    if (what.empty())
        return list_topics();
    for (const auto& explainer : explainers)
        if (std::string lines = explainer(what); !lines.empty())
            return lines.substr(0, lines.find_last_not_of('\n') + 1);
    throw problem("nothing is known of \"" + what + "\"" + suggestion(what, topics()));
}

} // namespace pelmsim
