/**
 * @file agent.hpp
 * An agent's connection to the daemon, its requests, and what comes back.
 *
 *     auto agent = pelmconf::agent::connect();
 *     agent.create_session(1);
 *     agent.send();
 *     while (auto answer = agent.receive())
 *         use(answer->body);
 */
#ifndef PELMCONF_AGENT_HPP
#define PELMCONF_AGENT_HPP

#include "frames.hpp"

#include <conf_agent.h>

namespace pelmconf {
inline namespace PELMCONF_MODE {

/** Owns the connection. Move-only. */
class agent {
public:
    /** Reads the profile and connects. Fails when there is no daemon; syslog says why. */
    static or_error<agent> connect() {
        const int sock = conf_agent_init();
        if (sock < 0)
            return detail::failed<agent>(
                error(-1, "There is no daemon to talk to; syslog says why."));
        return agent(sock);
    }
    /** What was moved from can be assigned to or destroyed. */
    agent(agent&& other) noexcept
        : sock_(std::exchange(other.sock_, -1)),
          input_(std::move(other.input_)),
          output_(std::move(other.output_)) {}
    /** As above. */
    agent& operator=(agent&& other) noexcept {
        std::swap(sock_, other.sock_);
        std::swap(input_, other.input_);
        std::swap(output_, other.output_);
        return *this;
    }
    /** Closes the connection. */
    ~agent() {
        if (sock_ >= 0)
            conf_agent_exit(sock_);
    }

    /** @return the socket, which stays the agent's: blocking unless you make it otherwise */
    int descriptor() const noexcept { return sock_; }

    /**
     * Puts a request for a session behind those that are to be sent; seq is its number. Fails
     * without memory, or for a user who has no name; nothing is added then.
     */
    or_error<void> create_session(int seq) { return build(conf_agent_build_session, seq); }
    /** The same for notifications. Fails without memory; nothing is added then. */
    or_error<void> create_subscription(int seq) { return build(conf_agent_build_notify_rpc, seq); }
    /** The same for the daemon's capabilities. Fails as create_subscription(). */
    or_error<void> get_capability(int seq) { return build(conf_agent_build_capability, seq); }

    /**
     * Sends what was put there.
     *
     * @return and fails as write_from()
     */
    or_error<bool> send() { return write_from(output_, sock_); }
    /**
     * Reads once, for an event loop; next() then has the frames.
     *
     * @return and fails as read_into()
     */
    or_error<bool> read() { return read_into(input_, sock_); }
    /**
     * Takes a frame that was read.
     *
     * @return and fails as frame_reader::next()
     */
    or_error<std::optional<frame>> next() { return input_.next(); }
    /**
     * Waits for a frame, on a blocking socket.
     *
     * @return nothing when the connection has ended between two frames, or within one. Fails as
     *         next(), and when nothing can be read
     */
    or_error<std::optional<frame>> receive() {
        while (!input_.ready()) {
            const ssize_t got = detail::read_once(input_.input(), sock_);
            if (got == 0)
                return std::optional<frame>();
            if (got < 0)
                return detail::failed<std::optional<frame>>(detail::system_error("Cannot read: "));
        }
        return next();
    }
    /** @return what is to be sent, for requests of your own */
    buffer& output() noexcept { return output_; }

private:
    explicit agent(int sock) : sock_(sock) {}

    or_error<void> build(int (*request)(conf_buffer_t**, int), int seq) {
        return detail::succeeded(request(output_.get(), seq) == 0,
                                 "The request cannot be built; syslog says why.");
    }

    int sock_;
    frame_reader input_;
    buffer output_;
};

} // namespace PELMCONF_MODE
} // namespace pelmconf

#endif
