#include "support/peer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

constexpr int limit_ms = 20000; // what a slow machine under valgrind may need
constexpr std::uint32_t magic = 0xFEDCBAFF;

template <class T> std::string bytes_of(T value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

} // namespace

std::string header_of(std::uint32_t length, std::uint16_t seq) {
    return bytes_of(magic) + bytes_of(length) + bytes_of(seq) + std::string(2, '\0');
}

std::string frame_of(std::string_view body, std::uint16_t seq) {
    return header_of(static_cast<std::uint32_t>(body.size()), seq).append(body);
}

std::string read_exactly(int fd, std::size_t size) {
    std::string bytes(size, '\0');
    std::size_t done = 0;
    pollfd ready{.fd = fd, .events = POLLIN, .revents = 0};
    while (done < size && poll(&ready, 1, limit_ms) == 1) {
        const ssize_t count = recv(fd, &bytes[done], size - done, MSG_DONTWAIT);
        if (count <= 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    EXPECT_EQ(done, size) << "bytes came before the other end hung up or time ran out";
    return bytes;
}
