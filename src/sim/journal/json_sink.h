// The journal as JSON lines, one for each event; docs/journal.md says what is in them.
#pragma once

#include "journal/journal.h"

#include <functional>

namespace pelmsim {

class json_sink final : public event_sink {
public:
    // Takes one line, with its end.
    using writer = std::function<void(const std::string& line)>;

    explicit json_sink(writer write) : write_(std::move(write)) {}

    void take(const event& what) override;
    void show_frames(bool wanted) override { shows_frames_ = wanted; }

private:
    writer write_;
    bool shows_frames_ = false;
};

} // namespace pelmsim
