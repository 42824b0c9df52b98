// Frames as bytes, without the library's way with them.
#pragma once

#include <cstdint>
#include <string>

inline std::string header_of(std::uint32_t length, std::uint16_t seq = 0) {
    const std::uint32_t words[] = {0xFEDCBAFF, length, seq}; // the last one is half padding
    return {reinterpret_cast<const char*>(words), sizeof words};
}

inline std::string frame_of(const std::string& body, std::uint16_t seq = 0) {
    return header_of(static_cast<std::uint32_t>(body.size()), seq) + body;
}
