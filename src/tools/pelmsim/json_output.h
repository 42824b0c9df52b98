// The journal as JSON lines on the standard output, for a program that reads along.
#pragma once

#include "journal/json_sink.h"
#include "wire/line_output.h"

namespace pelmsim {

class json_output final : public event_sink {
public:
    json_output(event_loop& loop, milliseconds patience);
    json_output(const json_output&) = delete;
    json_output& operator=(const json_output&) = delete;
    ~json_output() { (void)finish(); }

    void take(const event& what) override { sink_.take(what); }
    void show_frames(bool wanted) override { sink_.show_frames(wanted); }

    // From now on a reader that is lost no longer stops the loop.
    void let_session_end() { stops_loop_ = false; }

    // Waits until all has been read; says whether it was.
    bool finish();

private:
    void lost(const std::string& why) const;

    event_loop& loop_;
    bool stops_loop_ = true;
    line_output lines_;
    json_sink sink_;
};

} // namespace pelmsim
