// What a connection reads from and writes to; faults of the line are put in its place.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace pelmsim {

// The process at the other end.
struct peer_process {
    pid_t pid = 0;
    uid_t uid = 0;
};

// The line goes down with the object.
class channel {
public:
    channel() = default;
    channel(const channel&) = delete;
    channel& operator=(const channel&) = delete;
    virtual ~channel() = default;

    virtual peer_process other_end() const = 0;

    // The processes that hold the other end now, as far as they can be seen: who connected may have
    // gone, and left it to a child.
    virtual std::vector<pid_t> holders() const { return {}; }

    // From now on calls when there is something to read, when the line is down, and when there is
    // room again after a write that found too little. The call may end the channel.
    virtual void start(std::function<void()> ready) = 0;

    // Whether it calls when there is something; until it is to again, it forgets that it would.
    virtual void listen(bool wanted) = 0;

    // How many bytes came, 0 when there are none yet; nothing when the line is down.
    virtual std::optional<std::size_t> read(std::span<char> room) = 0;

    // How many bytes were taken, 0 when there is no room; nothing when nobody reads them any more.
    // Throws problem when it fails otherwise.
    virtual std::optional<std::size_t> write(std::string_view bytes) = 0;

    // Whether the other end has read all that was taken.
    virtual bool is_read() const = 0;
};

} // namespace pelmsim
