// Frames as bytes, without the library's way with them.
#pragma once

#include <cstdint>
#include <string>

// A number as it lies in memory here: both ends of a connection are on one machine.
template <class Number> std::string bytes_of(Number number) {
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

inline std::string header_of(std::uint32_t length, std::uint16_t seq = 0) {
    return bytes_of(0xFEDCBAFF) + bytes_of(length) + bytes_of(seq) + std::string(2, '\0');
}

inline std::string frame_of(const std::string& body, std::uint16_t seq = 0) {
    return header_of(static_cast<std::uint32_t>(body.size()), seq) + body;
}
