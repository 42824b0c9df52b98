// Reads the datagrams that arrive at a socket.
#pragma once

#include "wire/loop.h"

#include <string>

namespace pelmsim {

// Who gets them.
class datagram_owner {
public:
    virtual void take(std::string datagram) = 0;
    virtual void failed(const char* why) = 0; // to take one; soon the next is read

protected:
    ~datagram_owner() = default;
};

class datagram_receiver {
public:
    datagram_receiver(event_loop& loop, datagram_owner& owner) : loop_(loop), owner_(owner) {}

    // Reads from that socket, which stays its owner's, until it is told to stop.
    void start(int socket);
    void stop();

    // Leaves them where they are for now, also those of a socket that comes later; and reads on.
    void hold(bool held);

private:
    void listen();
    void on_ready();

    event_loop& loop_;
    datagram_owner& owner_;
    int socket_ = -1;
    bool held_ = false;
    timer next_try_;
};

} // namespace pelmsim
