// Frames that wait until the peer takes them.
#pragma once

#include <conf_plugin.h>
#include <deque>
#include <string>
#include <string_view>

namespace pelmsim {

class frame_queue {
public:
    // One frame of any legal length may wait, and beside it what comes in passing.
    static constexpr std::size_t most_bytes =
        std::size_t{16} * 1024 * 1024 + CONF_MSG_MAX_LENGTH + sizeof(msg_head_t);

    bool empty() const { return unsent_.empty(); }
    std::size_t bytes() const { return bytes_; }

    // Whether there is room for a frame with such a body.
    bool has_room_for(std::size_t body_bytes) const {
        return bytes_ + sizeof(msg_head_t) + body_bytes <= most_bytes;
    }

    // Puts a frame behind the others, or makes it one piece with the last; the body fits into one.
    // Returns its sequence number.
    u16_t add(std::string_view body, bool joined = false);

    // What is to be written next, while it is not empty; and that so much of it has been.
    std::string_view front() const { return std::string_view{unsent_.front()}.substr(written_); }
    void written(std::size_t count);

    void clear();

private:
    std::deque<std::string> unsent_; // pieces of one frame or more
    std::size_t bytes_ = 0;
    std::size_t written_ = 0; // of the first one
    u16_t next_sequence_ = 0;
};

} // namespace pelmsim
