// Lines that somebody writes who is answered one by one.
#pragma once

#include "wire/loop.h"

#include <optional>
#include <string>

namespace pelmsim {

// Nothing is read while a line is there that has not been taken: who writes faster than lines are
// taken has to wait.
class line_input {
public:
    // Takes lines of any length, but keeps no more of one than its first bytes: so many, and one
    // by which it is seen to be too long.
    line_input(event_loop& loop, int fd, std::size_t longest);
    line_input(const line_input&) = delete;
    line_input& operator=(const line_input&) = delete;
    ~line_input() { watch(false); }

    // Whether a line is there, or the end; until then the loop wakes up when something comes. It is
    // served in between, however fast somebody writes.
    bool is_ready();

    // The next line, without its end; nothing at the end.
    std::optional<std::string> take();

private:
    bool has_line() const { return end_of_line_ != std::string::npos; }
    void read_some();
    void append(std::string_view bytes);
    void watch(bool wanted);

    event_loop& loop_;
    const int fd_;
    const std::size_t longest_;
    std::string unread_; // what has come and was not taken
    std::size_t end_of_line_ = std::string::npos;
    bool ended_ = false;
    bool watched_ = false;
    timer soon_; // there is more to read
};

} // namespace pelmsim
