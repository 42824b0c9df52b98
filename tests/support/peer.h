// The other end of a socket, as bytes: it knows frames, and nothing of the library's way with them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "support/handle.h"

struct socket_pair {
    conf::unique_fd ours;
    conf::unique_fd peer;
};

// Two connected stream sockets; ours does not block, as a plugin's.
socket_pair make_socket_pair();

std::string header_of(std::uint32_t length, std::uint16_t seq = 0, std::uint16_t format = 0);
std::string frame_of(std::string_view body, std::uint16_t seq = 0);

struct frame {
    std::uint16_t seq = 0;
    std::uint16_t format = 0;
    std::string body;
};

// Blocking, each with a limit of some seconds; the test fails when it runs out or the other end
// hangs up first.
void write_all(int fd, std::string_view bytes);
std::string read_exactly(int fd, std::size_t size);
frame read_frame(int fd);
