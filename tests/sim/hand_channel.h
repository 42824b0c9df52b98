// A channel whose other end is the test.
#pragma once

#include "wire/faulty_channel.h"

#include <algorithm>
#include <string>
#include <unistd.h>
#include <utility>

struct far_end {
    std::string arriving; // what is read next
    std::string taken;    // what was written
    std::size_t room = 1000;
    int writes = 0;
    bool is_heard = true;
    bool is_down = false; // once what arrives has been read
    bool reads_no_more = false;
    std::function<void()> ready;
};

class hand_channel final : public pelmsim::channel {
public:
    explicit hand_channel(far_end& other) : other_(other) {}

    pelmsim::peer_process other_end() const override { return {getpid(), 0}; }
    void start(std::function<void()> ready) override { other_.ready = std::move(ready); }

    void listen(bool wanted) override { other_.is_heard = wanted; }

    std::optional<std::size_t> read(std::span<char> room) override {
        if (other_.arriving.empty() && other_.is_down)
            return std::nullopt;
        const std::size_t count = other_.arriving.copy(room.data(), room.size());
        other_.arriving.erase(0, count);
        return count;
    }

    std::optional<std::size_t> write(std::string_view bytes) override {
        if (other_.reads_no_more)
            return std::nullopt;
        const std::size_t count = std::min(bytes.size(), other_.room);
        other_.writes += count > 0 ? 1 : 0;
        other_.room -= count;
        other_.taken += bytes.substr(0, count);
        return count;
    }

    bool is_read() const override { return true; }

private:
    far_end& other_;
};

inline std::unique_ptr<pelmsim::faulty_channel> faulty_hand_channel(pelmsim::event_loop& loop,
                                                                    far_end& other) {
    return std::make_unique<pelmsim::faulty_channel>(loop, std::make_unique<hand_channel>(other));
}
