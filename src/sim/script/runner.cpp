#include "script/runner.h"

#include "model/problem.h"
#include "script/commands.h"
#include "script/suggest.h"

#include <sstream>

namespace pelmsim {
namespace {

void report(const ending& how, const event_journal& events) {
    if (how.shows == ending::showing::lines)
        events.report({.kind = event_kind::shown, .text = how.result->shown});
    else if (how.shows == ending::showing::verdict)
        events.report({.kind = event_kind::outcome, .result = &*how.result});
}

} // namespace

const outcome* runner::run(const std::string& line) {
    script_line words(line);
    const std::string name = words.word_or("#");
    return name.starts_with('#') ? nullptr : carry_out(name, words, line);
}

const outcome* runner::run(const std::string& name, const std::vector<std::string>& arguments) {
    std::string line = name;
    for (const std::string& each : arguments)
        line += " " + each;
    given_words words(arguments);
    return carry_out(name, words, line);
}

const outcome* runner::carry_out(const std::string& name, line_reader& words,
                                 const std::string& line) {
    on_.daemon.publisher().recover();
    on_.events.report({.kind = event_kind::command, .text = line, .place = on_.expected.place()});
    const command* const found = find_command(name);
    if (found == nullptr)
        throw problem("there is no command \"" + name + "\"" + suggestion(name, command_names()));
    ++on_.commands;
    if (found->begins_step)
        on_.begin_step();
    const moment begin = on_.loop.now();
    ending how = found->run(on_, words);
    report(how, on_.events);
    const bool has_outcome = how.result.has_value();
    if (has_outcome)
        on_.expected.look_at(std::move(*how.result), on_.loop.now() - begin);
    words.finish();
    return has_outcome ? &on_.expected.last() : nullptr;
}

void runner::take(const std::string& line) {
    begun_ += line.substr(0, line.ends_with('\r') ? line.size() - 1 : line.size());
    if (begun_.ends_with('\\'))
        begun_.back() = ' ';
    else
        (void)run(std::exchange(begun_, {}));
}

void runner::run_script(const std::string& name, const std::string& text) {
    on_.directory = std::filesystem::path(name).parent_path();
    std::istringstream lines(text);
    std::string line;
    std::string place;
    for (int number = 1; !on_.has_quit && std::getline(lines, line); ++number) {
        if (!is_within_line())
            place = name + ":" + std::to_string(number) + ": ";
        on_.expected.stand_at(place);
        try {
            take(line);
        } catch (const problem& why) {
            throw problem(place + why.what());
        }
    }
    if (is_within_line())
        throw problem(place + "nothing follows the backslash");
}

} // namespace pelmsim
