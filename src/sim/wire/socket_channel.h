// A channel over a non-blocking stream socket.
#pragma once

#include "model/owners.h"
#include "wire/channel.h"
#include "wire/loop.h"
#include "wire/socket_holders.h"

namespace pelmsim {

class socket_channel final : public channel {
public:
    socket_channel(event_loop& loop, unique_fd socket) : loop_(loop), socket_(std::move(socket)) {}
    socket_channel(const socket_channel&) = delete;
    socket_channel& operator=(const socket_channel&) = delete;
    ~socket_channel() override { loop_.forget(socket_.get()); }

    peer_process other_end() const override;
    std::vector<pid_t> holders() const override { return holders_of_other_end(socket_.get()); }
    void start(std::function<void()> ready) override;
    void listen(bool wanted) override;
    std::optional<std::size_t> read(std::span<char> room) override;
    std::optional<std::size_t> write(std::string_view bytes) override;
    bool is_read() const override;

private:
    void wait_for_room(bool wait);
    short events() const; // that are waited for

    event_loop& loop_;
    unique_fd socket_;
    std::function<void()> ready_;
    bool waits_for_room_ = false;
};

} // namespace pelmsim
