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

// A text as it stands in JSON, in quotes.
std::string json_text(std::string_view text);

// What a name in a line stands for; false when it stands for nothing.
bool find_named(std::string_view name, event_kind& found);
bool find_named(std::string_view name, role& found);
bool find_named(std::string_view name, direction& found);
bool find_named(std::string_view name, cause& found);
bool find_named(std::string_view name, verdict& found);

} // namespace pelmsim
