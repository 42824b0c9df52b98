// A command as JSON: {"id": 7, "command": "set", "arguments": ["/a/b", "<x/>"]}, or with the line
// that a script would have, {"id": 7, "line": "set /a/b <x/>"}.
#pragma once

#include <string>
#include <vector>

namespace pelmsim {

struct json_command {
    static constexpr std::size_t longest = std::size_t{16} * 1024 * 1024; // as bytes of JSON

    std::string id; // a number or a string, as it came; empty when there is none
    std::string name;
    std::vector<std::string> arguments;
    std::string line; // when there is no name
};

// Throws problem when the text is no such object. The id is set whenever it can be told.
void read_json_command(const std::string& text, json_command& command);

} // namespace pelmsim
