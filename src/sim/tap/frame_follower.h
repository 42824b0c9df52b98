// Reads frames out of bytes that pass, as far as that takes neither much memory nor much time.
#pragma once

#include "wire/connection.h"

#include <functional>
#include <optional>
#include <span>

namespace pelmsim {

// What all who read along may keep at once.
class shared_room {
public:
    static constexpr std::size_t most_bytes = std::size_t{64} * 1024 * 1024;

    bool has(std::size_t count) const { return used_ + count <= most_bytes; }
    void change(std::size_t before, std::size_t now) { used_ += now - before; }

private:
    std::size_t used_ = 0;
};

class frame_follower {
public:
    static constexpr std::size_t longest = std::size_t{4} * 1024 * 1024; // that is read

    struct reader {
        std::function<void(arrival frame)> frame; // one that could be read
        std::function<void(const defect& what)> defect;
    };

    frame_follower(shared_room& room, reader tell) : room_(room), tell_(std::move(tell)) {}
    frame_follower(const frame_follower&) = delete;
    frame_follower& operator=(const frame_follower&) = delete;
    ~frame_follower() { room_.change(held_, 0); }

    void add(std::span<const char> bytes);

    // Bytes are missing here. No frame holds what another begins with, so the next one is found.
    void begin_again();

private:
    bool take_one();
    bool pass_over(const char* why);
    void count_held();

    shared_room& room_;
    reader tell_;
    std::optional<frame_reader> received_; // none while nothing is kept
    std::size_t held_ = 0;
    std::size_t unread_ = 0; // bytes to come of a frame that is passed over
};

} // namespace pelmsim
