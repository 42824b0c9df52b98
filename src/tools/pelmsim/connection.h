// One stream connection: frames in and out of a non-blocking socket.
#pragma once

#include "console.h"
#include "loop.h"
#include "owners.h"

#include <conf_buffer.h>
#include <memory>
#include <string>
#include <sys/types.h>

namespace pelmsim {

struct buffer_owner {
    void operator()(conf_buffer_t* buffer) const noexcept { conf_buffer_destroy(buffer); }
};

class connection : public std::enable_shared_from_this<connection> {
public:
    connection(event_loop& loop, console& out, unique_fd socket);
    connection(const connection&) = delete;
    connection& operator=(const connection&) = delete;
    virtual ~connection();

    void start(); // begins to listen to the peer

    // Takes the frame into the queue and writes what the socket takes at once.
    void send(const xmlNode* body);

    // Ends the connection from this side; on_closed() is not called.
    void close();

    bool is_open() const { return static_cast<bool>(socket_); }
    pid_t pid() const { return pid_; }
    uid_t uid() const { return uid_; }

    virtual std::string label() const = 0; // as event lines call the peer

protected:
    virtual void on_frame(unique_node body) = 0;
    virtual void on_unreadable(const std::string& why) = 0; // a frame was dropped
    virtual void on_closed() = 0;                           // the peer has hung up

    event_loop& loop() { return loop_; }
    console& out() { return out_; }
    void complain(const std::string& why); // prints an event line of what cannot be read

private:
    void on_ready(short events);
    bool receive();
    void write_queue();
    void take_frames();
    bool frame_is_whole();
    void skip_garbage();
    void deliver_frame();

    event_loop& loop_;
    console& out_;
    unique_fd socket_;
    pid_t pid_ = 0;
    uid_t uid_ = 0;
    u16_t seq_ = 0;
    // Raw pointers: the calls that fill them move them.
    conf_buffer_t* received_;
    conf_buffer_t* queued_;
};

} // namespace pelmsim
