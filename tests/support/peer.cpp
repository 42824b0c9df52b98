#include "support/peer.h"

#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

using clock_type = std::chrono::steady_clock;
constexpr std::chrono::seconds limit{20}; // what a slow machine under valgrind may need
constexpr std::uint32_t magic = 0xFEDCBAFF;
constexpr std::size_t header_bytes = 12;

template <class T> std::string bytes_of(T value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

template <class T> T number_at(const std::string& bytes, std::size_t offset) {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

// Calls step, which moves some bytes and returns how many, until size are through.
template <class Step> void move(int fd, short event, std::size_t size, Step step) {
    const auto end = clock_type::now() + limit;
    for (std::size_t done = 0; done < size;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - clock_type::now());
        pollfd ready{.fd = fd, .events = event, .revents = 0};
        ASSERT_GT(left.count(), 0) << "no more than " << done << " of " << size << " bytes in time";
        if (poll(&ready, 1, static_cast<int>(left.count())) != 1)
            continue;
        const ssize_t moved = step(done);
        ASSERT_TRUE(moved > 0 || errno == EAGAIN)
            << "hung up after " << done << " of " << size << " bytes";
        if (moved > 0)
            done += static_cast<std::size_t>(moved);
    }
}

} // namespace

socket_pair make_socket_pair() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0 ||
        fcntl(ends[0], F_SETFL, O_NONBLOCK) != 0)
        std::abort();
    return {conf::unique_fd{ends[0]}, conf::unique_fd{ends[1]}};
}

std::string header_of(std::uint32_t length, std::uint16_t seq, std::uint16_t format) {
    return bytes_of(magic) + bytes_of(length) + bytes_of(seq) + bytes_of(format);
}

std::string frame_of(std::string_view body, std::uint16_t seq) {
    return header_of(static_cast<std::uint32_t>(body.size()), seq).append(body);
}

void write_all(int fd, std::string_view bytes) {
    move(fd, POLLOUT, bytes.size(), [&](std::size_t done) {
        return send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT);
    });
}

std::string read_exactly(int fd, std::size_t size) {
    std::string bytes(size, '\0');
    move(fd, POLLIN, size, [&](std::size_t done) {
        return recv(fd, bytes.data() + done, size - done, MSG_DONTWAIT);
    });
    return bytes;
}

frame read_frame(int fd) {
    const std::string header = read_exactly(fd, header_bytes);
    EXPECT_EQ(number_at<std::uint32_t>(header, 0), magic);
    if (testing::Test::HasFatalFailure())
        return {};
    return {.seq = number_at<std::uint16_t>(header, 8),
            .format = number_at<std::uint16_t>(header, 10),
            .body = read_exactly(fd, number_at<std::uint32_t>(header, 4))};
}
