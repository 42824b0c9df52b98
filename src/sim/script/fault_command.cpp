#include "script/fault_command.h"

#include "daemon/faults.h"
#include "model/problem.h"
#include "script/session.h"
#include "script/suggest.h"

#include <limits>
#include <string_view>

namespace pelmsim {
namespace {

constexpr int most_of_chaos = 10000;

const fault_row& read_row(const std::string& name) {
    if (const fault_row* const found = find_fault(name); found != nullptr)
        return *found;
    std::vector<std::string> names{"off"};
    for (const fault_row& each : all_faults())
        names.emplace_back(each.name);
    throw problem("\"" + name + "\" is no fault" + suggestion(name, names));
}

fault read_fault(const fault_row& row, line_reader& words) {
    fault made{.kind = row.kind};
    const std::string_view arguments = row.arguments;
    if (arguments == "MS")
        made.time = milliseconds(words.number("a number of milliseconds"));
    if (const int time = arguments == "[MS]" ? words.number_or(-1) : -1; time >= 0)
        made.time = milliseconds(time);
    if (made.time && *made.time < milliseconds(0))
        throw problem("a time is not below 0");
    if (arguments == "CODE TEXT") {
        made.code = words.number("the error's code");
        made.text = words.word("the error's text");
    }
    return made;
}

int read_count(line_reader& words, int most) {
    const int count = words.number("how many");
    if (count < 1 || count > most)
        throw problem("a number from 1 to " + std::to_string(most) + " was expected");
    return count;
}

// The end of the line, each part of which may be left out.
void read_target(line_reader& words, armed_fault& made) {
    using part = fault_target::part;
    std::string next = words.word_or("");
    if (next == "answer" || next == "request") {
        made.at.which = next == "answer" ? part::answer : part::request;
        next = words.word_or("");
        if (next != "to" && next != "times") {
            made.at.method = next;
            next = words.word_or("");
        }
    }
    if (next == "to") {
        made.at.name = words.word("a plugin");
        next = words.word_or("");
    }
    if (next == "times") {
        made.times = read_count(words, std::numeric_limits<int>::max());
        next.clear();
    }
    if (!next.empty())
        throw problem("\"" + next + "\" is neither answer nor request nor to nor times");
}

std::string describe(const armed_fault& each) {
    using part = fault_target::part;
    std::string text = fault_text(each.what);
    if (each.at.which != part::any)
        text += each.at.which == part::answer ? " answer" : " request";
    if (!each.at.method.empty())
        text += " " + each.at.method;
    if (!each.at.name.empty())
        text += " to " + each.at.name;
    if (each.times > 1)
        text += " times " + std::to_string(each.times);
    if (each.in_turn)
        text += ", in its turn, when " + std::to_string(each.skipped) + " have gone by";
    return text + "\n";
}

ending list_faults(session& on) {
    std::string lines;
    for (const armed_fault& each : on.daemon.faults().armed())
        lines += describe(each);
    return ending::lines(lines.empty() ? "no fault is armed" : lines);
}

} // namespace

ending plant_fault(session& on, line_reader& words) {
    const std::string name = words.word_or("");
    if (name.empty())
        return list_faults(on);
    if (name == "off") {
        words.finish();
        on.daemon.end_faults();
        return {};
    }
    const fault_row& row = read_row(name);
    armed_fault made{.what = read_fault(row, words)};
    read_target(words, made);
    words.finish();
    on.daemon.arm(std::move(made));
    return {};
}

ending plant_chaos(session& on, line_reader& words) {
    const int seed = words.number("a seed");
    const int count = read_count(words, most_of_chaos);
    words.finish();
    on.daemon.faults().arm_chaos(static_cast<std::uint64_t>(seed), count);
    return list_faults(on);
}

} // namespace pelmsim
