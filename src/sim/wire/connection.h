// One connection of a peer: frames in and out of a channel.
#pragma once

#include "journal/journal.h"
#include "wire/fault.h"
#include "wire/faulty_channel.h"
#include "wire/frame_queue.h"
#include "wire/frame_reader.h"
#include "wire/hold_up.h"

#include <memory>
#include <string>

namespace pelmsim {

// What is wrong with what came, or why a connection ended.
struct defect {
    cause why;
    std::size_t count = 0;
    std::string text = {};
};

class connection;

// Who keeps a connection.
class connection_owner {
public:
    virtual void heard_from(pid_t pid) = 0;         // what that process has sent is not read yet
    virtual void gone(const connection& which) = 0; // it has ended, but by its owner

    // So many bytes are kept for one of its connections, which were that many before; when it is
    // more now, the owner may hang up on some.
    virtual void keeps(std::size_t, std::size_t) {}

    // What is to go wrong with the frame that goes out next, which is then said to have happened.
    virtual std::optional<fault> fault_of(const peer&, const outgoing_frame&) { return {}; }

    // That fault befalls not just one connection.
    virtual void befall(const fault&) {}

protected:
    ~connection_owner() = default;
};

class connection : public std::enable_shared_from_this<connection> {
public:
    connection(event_journal& events, std::unique_ptr<faulty_channel> line,
               connection_owner& owner);
    connection(const connection&) = delete;
    connection& operator=(const connection&) = delete;
    virtual ~connection() = default;

    void start(); // begins to listen to the peer

    // Takes the frame into the queue and writes what the channel takes at once. Hangs up on a peer
    // that leaves too much of it unread.
    void send(const xmlNode* body);
    void send(const xmlNode* body, const std::string& text); // which it is as text

    // The same with what goes wrong on the line, or behind it. What is wrong with the frame itself,
    // or stands beside it, is for the caller to do.
    void send(const xmlNode* body, const std::optional<fault>& planted);

    // Ends a deafness that a fault has brought.
    void hear_again();

    // Bytes that are kept for it: of what came, and of what it has not read.
    std::size_t held() const { return received_.bytes() + unsent_.bytes(); }

    // Hangs up since it is too much that is kept.
    void give_up();

    // Hangs up, and does not tell the owner.
    void hang_up();

    // Keeps the frame back until the next one is sent, which is then written in one piece with it,
    // or until it is let go.
    void keep_back(const xmlNode* body);
    void let_go();

    // Whether a fault is about to end it: nothing more goes out, and nothing is read.
    bool is_ending() const { return is_ending_; }

    // How often something went wrong with it on purpose, and how long that has held it up until
    // now.
    std::size_t faults() const { return faults_; }
    moment::duration held_up(moment now) const { return held_up_.total(now); }

    // Whether the peer has read all that was sent, or never will.
    bool is_read() const { return !is_open() || (unsent_.empty() && line_->is_read()); }

    bool is_open() const { return line_ != nullptr; }
    bool was_ended_by_peer() const { return ended_ == cause::by_peer; }
    pid_t pid() const { return process_.pid; }
    uid_t uid() const { return process_.uid; }

    // What the process that connected is doing, in words: "process 812 (ntp) is asleep in read". It
    // may have gone, and left the connection to somebody else.
    std::string describe_process() const;
    bool has_lost_its_process() const;
    std::string describe_holders() const; // of the connection
    std::vector<pid_t> holders() const;   // as far as they can be seen

    virtual peer who() const = 0; // as events call the peer
    std::string label() const { return who().label(); }

protected:
    virtual void on_frame(unique_node body) = 0;
    virtual void on_unreadable(const defect& what) = 0; // a frame was dropped

    event_journal& events() { return events_; }

    // What is to go wrong with the frame that goes out next, which is then said to have happened.
    std::optional<fault> fault_of(const outgoing_frame& next);

    void complain(const defect& what);

private:
    void guarded(const std::function<void()>& action);
    void end(const defect& why);
    void on_ready();
    void put(const xmlNode* body, const std::string& text);
    bool queue_frame(const xmlNode* body, const std::string& text);
    void count_held();
    bool receive();
    void write_queue();
    void send_faulty(const xmlNode* body, const std::string& text, const fault& planted);
    void hang_up_behind(std::size_t count, faulty_channel::stop when);
    std::size_t sent() const { return line_->written() + unsent_.bytes(); } // or waits to be
    void take_frames();
    void deliver(arrival frame);

    event_journal& events_;
    connection_owner& owner_;
    std::unique_ptr<faulty_channel> line_; // null once the connection has ended
    peer_process process_;
    frame_reader received_;
    frame_queue unsent_;
    cause ended_ = cause::none;
    bool keeps_back_ = false; // the last of it
    bool is_ending_ = false;
    bool has_more_ = false;   // of what has come
    std::size_t counted_ = 0; // of held(), that the owner was told of
    std::size_t faults_ = 0;
    hold_up held_up_;
};

} // namespace pelmsim
