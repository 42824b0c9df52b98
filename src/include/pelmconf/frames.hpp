/**
 * @file frames.hpp
 * Bytes of a connection in and out: a buffer that frees itself, and the frames that stand in it.
 */
#ifndef PELMCONF_FRAMES_HPP
#define PELMCONF_FRAMES_HPP

#include "tree.hpp"

#include <cerrno>
#include <conf_buffer.h>
#include <conf_plugin.h>
#include <sys/socket.h>

namespace pelmconf {
inline namespace PELMCONF_MODE {

/**
 * Owns a conf_buffer_t, which wipes its bytes before it gives them back. Move-only; one that was
 * moved from can be assigned to or destroyed.
 */
class buffer {
public:
    /** An empty one. */
    buffer() : handle_(conf_buffer_create(0)) {
        if (handle_ == nullptr)
            detail::give_up(std::bad_alloc());
    }
    /** What was moved from can be assigned to or destroyed. */
    buffer(buffer&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    /** As above. */
    buffer& operator=(buffer&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~buffer() { conf_buffer_destroy(handle_); }

    /** @return the content, valid until the buffer is changed */
    std::string_view content() const noexcept {
        return {static_cast<const char*>(conf_buffer_data(handle_)),
                static_cast<std::size_t>(conf_buffer_length(handle_))};
    }
    /**
     * Adds bytes, from elsewhere. Fails beyond what an int can count, or without memory; the
     * content is as before then.
     */
    or_error<void> append(std::string_view bytes) {
        const auto length = static_cast<int>(bytes.size());
        const bool fits = length >= 0 && static_cast<std::size_t>(length) == bytes.size();
        return detail::succeeded(
            fits && conf_buffer_append(&handle_, const_cast<char*>(bytes.data()), length) == 0,
            "The buffer took no more.");
    }
    /** Takes bytes away from the beginning, as many as there are. */
    void remove(std::size_t bytes) noexcept {
        const std::size_t present = content().size();
        if (bytes > 0)
            conf_buffer_remove(handle_, 0, static_cast<int>(bytes < present ? bytes : present));
    }
    /** @return the C handle, for calls that may move the buffer */
    conf_buffer_t** get() noexcept { return &handle_; }

private:
    conf_buffer_t* handle_;
};

/** A message. */
struct frame {
    unsigned seq = 0; /**< the sender's number */
    std::string body; /**< XML; the string is not wiped when it goes */
};

/** Finds frames in what a connection brings, however it is cut. */
class frame_reader {
public:
    /** Adds what was received. Fails as buffer::append(). */
    or_error<void> append(std::string_view bytes) { return input_.append(bytes); }

    /**
     * Takes the first frame out.
     *
     * @return nothing while bytes of it are missing. Fails where no frame begins: nothing that
     *         follows can be read
     */
    or_error<std::optional<frame>> next() {
        const long bytes = first_frame();
        if (bytes < 0)
            return detail::failed<std::optional<frame>>(error(-1, "No frame begins here."));
        if (bytes == 0)
            return std::optional<frame>();
        const std::string_view content = input_.content();
        const auto size = static_cast<std::size_t>(bytes);
        frame found{head().seq,
                    std::string(content.substr(sizeof(msg_head_t), size - sizeof(msg_head_t)))};
        input_.remove(size);
        return std::optional<frame>(std::move(found));
    }

    /**
     * As next(), parsed.
     *
     * @return an empty tree while bytes are missing. Fails also for what is no XML; the frame is
     *         taken out then
     */
    or_error<tree> next_tree() {
        const long bytes = first_frame();
        if (bytes < 0)
            return detail::failed<tree>(error(-1, "No frame begins here."));
        if (bytes == 0)
            return tree();
        tree parsed(plugin_parse_message(input_.get()));
        if (!parsed)
            return detail::failed<tree>(error(-1, "The message is no XML."));
        return parsed;
    }

    /** @return whether a whole frame, or what is none, waits to be taken */
    bool ready() const noexcept { return first_frame() != 0; }
    /** @return the bytes that have not been taken */
    buffer& input() noexcept { return input_; }

private:
    // Bytes of the first frame; 0 while some are missing, -1 when it is none.
    long first_frame() const noexcept {
        if (input_.content().size() < sizeof(msg_head_t))
            return 0;
        const msg_head_t first = head();
        if (first.magic != CONF_MSG_MAGIC || first.length > CONF_MSG_MAX_LENGTH)
            return -1;
        const std::size_t bytes = sizeof(msg_head_t) + first.length;
        return input_.content().size() < bytes ? 0 : static_cast<long>(bytes);
    }
    msg_head_t head() const noexcept { // wherever it lies
        msg_head_t first;
        std::memcpy(&first, input_.content().data(), sizeof first);
        return first;
    }

    buffer input_;
};

/**
 * @return a message as a frame. Fails beyond CONF_MSG_MAX_LENGTH, which no receiver takes.
 * @param body  its one element
 */
inline or_error<std::string> frame_of(const tree& body, unsigned seq) {
    const std::string text = body.xml();
    if (text.size() > CONF_MSG_MAX_LENGTH)
        return detail::failed<std::string>(error(-1, "The message is too long."));
    const msg_head_t head = {CONF_MSG_MAGIC, static_cast<u32_t>(text.size()),
                             static_cast<u16_t>(seq), 0};
    std::string bytes(sizeof head, '\0');
    std::memcpy(bytes.data(), &head, sizeof head);
    return bytes + text;
}

namespace detail {

/**
 * Reads once, of whatever signals come.
 *
 * @return bytes; 0 at the end; -1 with errno, ENOMEM included
 */
inline ssize_t read_once(buffer& input, int sock) noexcept {
    char chunk[4096];
    ssize_t got = 0;
    do
        got = recv(sock, chunk, sizeof chunk, 0);
    while (got < 0 && errno == EINTR);
    if (got > 0 && conf_buffer_append(input.get(), chunk, static_cast<int>(got)) != 0) {
        errno = ENOMEM;
        return -1;
    }
    return got;
}

/** @return an error that says what errno means */
inline error system_error(const std::string& what) {
    return error(-1, what + std::strerror(errno) + ".");
}

} // namespace detail

/**
 * Reads once from a connection. A signal does not end it.
 *
 * @return false when the connection has ended; true also when a non-blocking one had nothing
 * Fails when it is broken, or without memory
 */
inline or_error<bool> read_into(frame_reader& reader, int sock) {
    const ssize_t got = detail::read_once(reader.input(), sock);
    if (got < 0 && errno != EAGAIN)
        return detail::failed<bool>(detail::system_error("Cannot read: "));
    return got != 0;
}

/**
 * Writes a buffer and takes away what went out. It raises no SIGPIPE, and a signal does not end it.
 *
 * @return whether all of it went; false when a non-blocking connection took no more for now
 * Fails when the connection is broken
 */
inline or_error<bool> write_from(buffer& output, int sock) {
    while (!output.content().empty()) {
        const std::string_view bytes = output.content();
        const ssize_t sent = send(sock, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent >= 0)
            output.remove(static_cast<std::size_t>(sent));
        else if (errno == EAGAIN)
            return false;
        else if (errno != EINTR)
            return detail::failed<bool>(detail::system_error("Cannot write: "));
    }
    return true;
}

} // namespace PELMCONF_MODE
} // namespace pelmconf

#endif
