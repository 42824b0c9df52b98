// One stream connection: frames in and out of a non-blocking socket.
#pragma once

#include "journal/journal.h"
#include "model/owners.h"
#include "wire/frame_queue.h"
#include "wire/frame_reader.h"
#include "wire/loop.h"

#include <memory>
#include <string>
#include <sys/types.h>

namespace pelmsim {

// What is wrong with what came, or why a connection ended.
struct defect {
    cause why;
    std::size_t count = 0;
    std::string text = {};
};

class connection : public std::enable_shared_from_this<connection> {
public:
    connection(event_loop& loop, event_journal& events, unique_fd socket);
    connection(const connection&) = delete;
    connection& operator=(const connection&) = delete;
    virtual ~connection();

    void start(); // begins to listen to the peer

    // Takes the frame into the queue and writes what the socket takes at once. Hangs up on a peer
    // that leaves too much of it unread.
    void send(const xmlNode* body);

    // Ends the connection from this side; on_closed() is not called.
    void close();

    bool is_open() const { return static_cast<bool>(socket_); }
    pid_t pid() const { return pid_; }
    uid_t uid() const { return uid_; }

    virtual peer who() const = 0; // as events call the peer
    std::string label() const { return who().label(); }

protected:
    virtual void on_arrival() = 0; // the peer has sent something, which is not read yet
    virtual void on_frame(unique_node body) = 0;
    virtual void on_unreadable(const defect& what) = 0; // a frame was dropped
    virtual void on_closed() = 0;                       // the connection has ended

    event_loop& loop() { return loop_; }
    event_journal& events() { return events_; }
    void complain(const defect& what);

private:
    void guarded(const std::function<void()>& action);
    void end(const defect& why);
    void on_ready(short events);
    bool queue_frame(const xmlNode* body);
    bool receive();
    void write_queue();
    void on_write_error(int error);
    void take_frames();
    void deliver(arrival frame);

    event_loop& loop_;
    event_journal& events_;
    unique_fd socket_;
    pid_t pid_ = 0;
    uid_t uid_ = 0;
    frame_reader received_;
    frame_queue unsent_;
};

} // namespace pelmsim
