// The options by which commands keep what happens in a file.
#pragma once

#include "recording/recording.h"

#include <memory>

namespace CLI {
class App;
}

namespace pelmsim {

void add_recording_options(CLI::App& command, recording_wish& wanted);

// Null when none is wanted; throws problem when there can be none. To be called where the file is
// in reach, which it need not stay.
std::unique_ptr<recording> begin_recording(const recording_wish& wanted);

// Both do nothing where there is none. To be called behind those who print, and in front of those
// who report within what they are told; and in the end, with the mistake that ended the run. That
// says whether everything is in the file.
void keep_in(recording* record, event_journal& events);
bool is_kept(recording* record, const std::string& mistake = {});

} // namespace pelmsim
