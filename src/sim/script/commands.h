// The commands of the prompt and of scripts.
#pragma once

#include "script/ending.h"
#include "script/line_reader.h"

#include <span>
#include <string>
#include <vector>

namespace pelmsim {

class session;

struct command {
    const char* name;
    const char* arguments;
    const char* purpose;
    ending (*run)(session& on, line_reader& words); // throws problem when it cannot be done so
    bool begins_step = false; // does something, and does not just look, wait or arrange
};

std::span<const command> all_commands(); // by their names
std::vector<std::string> command_names();

const command* find_command(const std::string& name); // or null

} // namespace pelmsim
