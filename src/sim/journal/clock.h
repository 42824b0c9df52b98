// The one clock: what all waiting goes by, and what time events are said to be of.
#pragma once

#include <chrono>

namespace pelmsim {

using std::chrono::milliseconds;
using moment = std::chrono::steady_clock::time_point;
using wall_time = std::chrono::system_clock::time_point;

// Others may take its place, such as one that a test moves on.
class clock_face {
public:
    clock_face() = default;
    clock_face(const clock_face&) = delete;
    clock_face& operator=(const clock_face&) = delete;
    virtual ~clock_face() = default;

    virtual moment now() const { return std::chrono::steady_clock::now(); }
    virtual wall_time wall() const { return std::chrono::system_clock::now(); }
};

} // namespace pelmsim
