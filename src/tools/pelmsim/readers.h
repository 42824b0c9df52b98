// Those who read what happens: people, or a program.
#pragma once

#include "journal/text_sink.h"
#include "json_output.h"
#include "terminal.h"

#include <optional>

namespace pelmsim {

struct reading_options {
    std::optional<bool> colours = {}; // otherwise as the standard output has them
    bool show_commands = false;
    bool json = false;
    milliseconds patience{10000}; // with a program that reads
};

struct readers {
    readers(event_loop& loop, const reading_options& given)
        : text([this](const std::string& lines) { out.print(lines); },
               given.colours.value_or(terminal::has_colours())) {
        if (given.show_commands)
            text.show_commands();
        if (given.json)
            json.emplace(loop, given.patience);
    }
    readers(const readers&) = delete;
    readers& operator=(const readers&) = delete;

    event_sink& chosen() {
        if (json)
            return *json;
        return text;
    }

    terminal out;
    text_sink text;
    std::optional<json_output> json;
};

} // namespace pelmsim
