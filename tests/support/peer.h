// The other end of a socket, as bytes: it knows frames, and nothing of the library's way with them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

std::string header_of(std::uint32_t length, std::uint16_t seq = 0);
std::string frame_of(std::string_view body, std::uint16_t seq = 0);

// The next bytes that come. The test fails when they take too long or the other end hangs up first.
std::string read_exactly(int fd, std::size_t size);
