#include "script/completion.h"

#include "journal/escaped.h"
#include "model/operation.h"
#include "model/problem.h"
#include "script/commands.h"
#include "script/known.h"
#include "script/session.h"
#include "script/syntax.h"

#include <algorithm>

namespace pelmsim {
namespace {

using strings = std::vector<std::string>;

// Where a word is being typed.
struct position {
    session& on;
    std::string command; // that it is behind
    std::string begun;   // what there is of it
};

strings texts(const std::vector<data_path>& paths) {
    strings all;
    for (const data_path& each : paths)
        all.push_back(each.text());
    return all;
}

// What some commands ask of plugins is nowhere else.
constexpr struct {
    const char* command;
    serves kind;
} served[] = {{"operate", serves::operate}, {"status", serves::status}};

strings paths(const position& at) {
    for (const auto& each : served)
        if (at.command == each.command)
            return texts(registered_paths(at.on, each.kind));
    strings all = texts(configured_paths(at.on));
    for (const serves kind : {serves::config, serves::status, serves::operate})
        std::ranges::move(texts(registered_paths(at.on, kind)), std::back_inserter(all));
    return all;
}

// Those of the folder that the word names so far; folders end in a slash, for more is to come.
strings files(const position& at) {
    const std::string folder = at.begun.substr(0, at.begun.rfind('/') + 1);
    strings names;
    std::error_code none;
    const auto place = at.on.directory / (folder.empty() ? "." : folder);
    for (const auto& each : std::filesystem::directory_iterator(place, none))
        names.push_back(folder + each.path().filename().string() +
                        (each.is_directory(none) ? "/" : ""));
    return names;
}

// What words in capitals stand for.
constexpr struct {
    const char* symbol;
    strings (*known)(const position& at);
} placeholders[] = {
    {"COMMAND", [](const position&) { return command_names(); }},
    {"FILE", files},
    {"OPER", [](const position&) { return oper_names(); }},
    {"PATH", paths},
    {"PLUGIN", [](const position& at) { return plugin_names(at.on); }},
    {"PROGRAM", [](const position& at) { return program_names(at.on); }},
};

strings known_as(const std::string& symbol, const position& at) {
    if (!is_placeholder(symbol))
        return {symbol};
    for (const auto& each : placeholders)
        if (symbol == each.symbol)
            return each.known(at);
    return {};
}

struct beginning {
    strings words;
    std::string begun;
};

// A quote or a bracket that is still open belongs to the word that is being typed.
beginning take_apart(const std::string& line) {
    script_line reader(line);
    beginning made;
    const bool behind_blank = line.empty() || line.back() == ' ' || line.back() == '\t';
    std::size_t place = line.size();
    try {
        while (!reader.at_end()) {
            place = reader.place();
            made.words.push_back(reader.word(""));
        }
    } catch (const problem&) {
        made.begun = line.substr(place);
        return made;
    }
    if (!behind_blank) {
        made.words.pop_back();
        made.begun = line.substr(place);
    }
    return made;
}

strings words_behind(strings before, session& on, const std::string& begun) {
    if (before.empty())
        return command_names();
    const command* const called = find_command(before.front());
    if (called == nullptr)
        return {};
    const position at{on, before.front(), begun};
    before.erase(before.begin());
    strings words;
    for (const std::string& symbol : next_symbols(called->arguments, before))
        for (std::string& each : known_as(symbol, at))
            words.push_back(std::move(each));
    return words;
}

} // namespace

completion complete(session& on, const std::string& line) {
    beginning typed = take_apart(line);
    completion made{typed.begun, words_behind(std::move(typed.words), on, typed.begun)};
    std::erase_if(made.words, [&](const std::string& word) {
        return !word.starts_with(made.begun) ||
               word != escaped(word); // a terminal obeys the latter
    });
    std::ranges::sort(made.words);
    made.words.erase(std::unique(made.words.begin(), made.words.end()), made.words.end());
    return made;
}

} // namespace pelmsim
