// Lines for a reader that may be slow, or go away.
#pragma once

#include "wire/loop.h"

#include <functional>
#include <string>

namespace pelmsim {

// What the reader has no room for is kept, up to a limit; beyond it everything waits for the
// reader, who has so much time for each bit. One that has read nothing by then, or has gone, is
// lost: from there on nothing is written. The process is to ignore SIGPIPE.
class line_output {
public:
    static constexpr std::size_t most_unread = std::size_t{16} * 1024 * 1024;

    // Calls back once, with the reason, when the reader is lost.
    using loss = std::function<void(const std::string& why)>;

    line_output(event_loop& loop, int fd, milliseconds patience, loss lost);
    line_output(const line_output&) = delete;
    line_output& operator=(const line_output&) = delete;
    ~line_output();

    void write(const std::string& line);

    // Waits until all has been taken, or the reader is lost.
    void finish() { write_until_left(0); }
    bool is_lost() const { return is_lost_; }

private:
    std::size_t left() const { return lines_.size() - written_; }
    void write_until_left(std::size_t count);
    void write_what_fits();
    void write_piece();
    void lose(const std::string& why);
    void forget();

    event_loop& loop_;
    const int fd_;
    const milliseconds patience_;
    const loss lost_;
    bool watched_ = false;
    bool is_lost_ = false;
    std::string lines_;
    std::size_t written_ = 0; // of them
};

} // namespace pelmsim
