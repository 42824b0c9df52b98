#include "recording/sayable.h"

#include "journal/escaped.h"
#include "model/problem.h"
#include "script/line_reader.h"

#include <functional>

namespace pelmsim {
namespace {

constexpr const char* replacement = "\xEF\xBF\xBD"; // of bytes that were no text

std::string in_quotes(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

// As it stands if that will do, and otherwise in quotes.
std::optional<std::string> in_one_way(const std::string& text,
                                      const std::function<bool(const std::string&)>& reads_back) {
    for (const std::string& way : {text, in_quotes(text)})
        try {
            if (is_sayable(way) && reads_back(way))
                return way;
        } catch (const problem&) {
            continue; // its quotes are not what they seem to be
        }
    return std::nullopt;
}

} // namespace

bool is_sayable(const std::string& line) {
    return escaped(line, "\t") == line && !line.ends_with('\\') &&
           line.find(replacement) == std::string::npos;
}

std::optional<std::string> as_word(const std::string& word) {
    return in_one_way(word, [&](const std::string& way) {
        script_line line(way + " x");
        return line.word("a word") == word && line.rest() == "x";
    });
}

std::optional<std::string> as_text(const std::string& text) {
    return in_one_way(text, [&](const std::string& way) {
        script_line line("x " + way);
        return line.word("a word") == "x" && line.rest() == text;
    });
}

} // namespace pelmsim
