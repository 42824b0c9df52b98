#include "script/json_runner.h"

#include "model/problem.h"
#include "script/json_command.h"

namespace pelmsim {

void json_runner::run(const std::string& line) {
    json_command given;
    event result{.kind = event_kind::result};
    try {
        read_json_command(line, given);
        result.result = carry_out(given);
    } catch (const problem& why) {
        result.mistake = why.what();
        ++mistakes_;
    } catch (const stopped&) {
        result.mistake = "interrupted";
        report(given, std::move(result));
        throw;
    }
    report(given, std::move(result));
}

const outcome* json_runner::carry_out(const json_command& given) {
    return given.name.empty() ? commands_.run(given.line)
                              : commands_.run(given.name, given.arguments);
}

void json_runner::report(const json_command& given, event&& result) {
    result.id = given.id;
    if (std::optional<finding> found = on_.expected.take_finding()) {
        result.text = std::move(found->expected);
        result.got = std::move(found->got);
        result.difference = std::move(found->difference);
        result.good = found->holds;
    }
    on_.events.report(std::move(result));
}

} // namespace pelmsim
