#include "record.h"

#include <CLI/CLI.hpp>

namespace pelmsim {

void add_recording_options(CLI::App& command, recording_wish& wanted) {
    CLI::Option* const record =
        command.add_option("--record", wanted.file, "Keep all that happens in this file")
            ->option_text("FILE")
            ->check([](const std::string& name) {
                return std::string(name.empty() ? "it needs a name" : ""); // of an unset variable
            });
    command
        .add_option("--redact", wanted.withheld,
                    "Keep the values at this path, and all texts that may hold them, out of it")
        ->option_text("PATH")
        ->allow_extra_args(false)
        ->needs(record);
}

std::unique_ptr<recording> begin_recording(const recording_wish& wanted) {
    return wanted.file.empty() ? nullptr : std::make_unique<recording>(wanted);
}

void keep_in(recording* record, event_journal& events) {
    if (record != nullptr)
        events.add(*record);
}

bool is_kept(recording* record, const std::string& mistake) {
    return record == nullptr || record->finish(mistake);
}

} // namespace pelmsim
