// Division of whole numbers.
#pragma once

#include <concepts>

namespace conf {

// The device has no instruction for it, and what the compiler calls instead is longer than whole
// functions here; the division of doubles is an instruction, and exact for 32 bits.
template <std::unsigned_integral T> constexpr T quotient_of(T number, T divisor) noexcept {
    if constexpr (sizeof number <= 4)
        return static_cast<T>(static_cast<double>(number) / divisor);
    else
        return number / divisor;
}

} // namespace conf
