// A channel around another one, on which something goes wrong when it is told to.
#pragma once

#include "wire/channel.h"
#include "wire/loop.h"

#include <deque>
#include <memory>

namespace pelmsim {

class faulty_channel final : public channel {
public:
    faulty_channel(event_loop& loop, std::unique_ptr<channel> line)
        : loop_(loop), line_(std::move(line)) {}

    peer_process other_end() const override { return line_->other_end(); }
    std::vector<pid_t> holders() const override { return line_->holders(); }
    void start(std::function<void()> ready) override;
    void listen(bool wanted) override { line_->listen(wanted); }
    std::optional<std::size_t> read(std::span<char> room) override;
    std::optional<std::size_t> write(std::string_view bytes) override;
    bool is_read() const override { return line_->is_read(); }

    // Calls as if there were something, once others had their turn.
    void call_soon();
    moment now() const { return loop_.now(); }

    std::size_t written() const { return written_; } // bytes, since it was made

    // Once so many bytes have been written, the next have to wait for that time.
    void delay_at(std::size_t place, milliseconds time);

    // Once so many bytes have been written, no more ever are, and none are read; calls out of the
    // loop, at once or when they have been read, but at the latest a second after all that was to
    // go wrong before. The call may end the channel.
    enum class stop { at_once, once_read };
    void stop_at(std::size_t place, stop when, std::function<void()> call);

    // Reads nothing until it is to hear again; once that time has gone by, calls. Meanwhile, what
    // has no room on the line waits, too.
    void be_deaf(std::optional<milliseconds> time, std::function<void()> call);

    // Says whether it was deaf. Throws problem when the system lets it not.
    bool hear_again();

private:
    struct obstacle {
        std::size_t place;
        std::optional<milliseconds> time; // without it, nothing ever passes
        stop when = stop::at_once;
        std::function<void()> call = {};
    };

    void approach();
    void meet();
    void pass();
    void await_reader();

    event_loop& loop_;
    std::unique_ptr<channel> line_;
    std::function<void()> ready_;
    std::size_t written_ = 0;
    std::deque<obstacle> ahead_; // in the order of their places
    bool waits_ = false;         // at the first of them
    timer next_;                 // step there
    timer latest_;               // when it is a stop
    timer soon_;
    bool is_deaf_ = false;
    timer deaf_;
};

} // namespace pelmsim
