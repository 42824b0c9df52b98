// Runs commands that come as JSON, and answers each with one event.
#pragma once

#include "script/runner.h"

#include <string>

namespace pelmsim {

struct json_command;

class json_runner {
public:
    explicit json_runner(session& on) : on_(on), commands_(on) {}

    // Carries out what one line asks for. What comes of it is reported last, as a result; so is
    // what is wrong with it, and nothing is done then.
    void run(const std::string& line);

    // How many lines were no commands, or could not be done.
    int mistakes() const { return mistakes_; }

private:
    const outcome* carry_out(const json_command& given);
    void report(const json_command& given, event&& result);

    session& on_;
    runner commands_;
    int mistakes_ = 0;
};

} // namespace pelmsim
