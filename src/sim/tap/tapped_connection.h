// One connection to a socket in the daemon's place, and the one to the daemon that belongs to it.
#pragma once

#include "tap/relay.h"
#include "tap/relays.h"

#include <optional>

namespace pelmsim {

class tapped_connection final : relay_owner {
public:
    tapped_connection(relays& owner, unsigned number, peer who, const std::string& place,
                      unique_fd accepted);
    tapped_connection(const tapped_connection&) = delete;
    tapped_connection& operator=(const tapped_connection&) = delete;
    ~tapped_connection() { wait(false); }

    // Connects to the daemon, now or once it has room in its queue. May end the object.
    void connect();

private:
    void passed(direction way, std::string_view bytes) override;
    void ended(bool by_daemon) override;
    bool tell_of_it();
    void wait(bool waits);
    void refuse(int error);

    relays& owner_;
    const unsigned number_;
    const peer who_;
    const std::string& place_;
    unique_fd accepted_; // until it is relayed
    std::optional<relay> relay_;
    timer next_try_;
    bool is_waiting_ = false;
    bool is_told_ = false;     // who reads along knows of it
    std::size_t lost_[2] = {}; // bytes that nobody was told of, in each direction
};

} // namespace pelmsim
