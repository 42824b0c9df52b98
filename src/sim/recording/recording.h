// All that happens, kept in a file as it happens: the journal's JSON lines, always with the frames,
// between lines of kind "recording" that say what this file is. docs/recording.md tells of it.
#pragma once

#include "journal/json_sink.h"
#include "model/owners.h"
#include "recording/redaction.h"

#include <memory>

namespace pelmsim {

struct recording_wish {
    std::string file;                       // no recording when empty
    std::vector<std::string> withheld = {}; // paths whose values are not to be in it
    bool shows_commands = false;            // so does what is printed of this run
};

class recording final : public event_sink {
public:
    // Makes the file, which only its owner may read. One that is there is replaced if it is a
    // recording, too. Throws problem when there can be none, or a path cannot be read.
    explicit recording(const recording_wish& wanted);
    recording(const recording&) = delete;
    recording& operator=(const recording&) = delete;
    ~recording() = default; // without finish(), the file is that of a run that was cut off

    // To be called with each configuration that is there before anything happens: what of it is to
    // be withheld is then known.
    void learn(const tree& configuration);

    // To be added to the journal in front of those who report within what they are told.
    void take(const event& what) override;
    void show_frames(bool wanted) override; // they are kept in any case, and that they were shown

    // Ends the file, with the mistake that ended the run, if any. Says whether it holds everything;
    // why not, the standard error output has been told when it happened.
    bool finish(const std::string& mistake = {});

private:
    void write(std::string_view lines);

    std::string name_;
    std::unique_ptr<redaction> redaction_; // or null
    unique_fd file_;
    bool is_whole_ = true;
    bool are_shown_ = false; // frames, in what is printed
    json_sink events_;
};

} // namespace pelmsim
