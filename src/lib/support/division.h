// Division of whole numbers.
#pragma once

#include <concepts>

namespace conf {

// A device may have no instruction for it. What the compiler calls instead takes 716 bytes; the division
// of doubles is an instruction there, and exact for 32 bits.
template <std::unsigned_integral T> constexpr T quotient_of(T number, T divisor) noexcept {
#if defined(__arm__) && !defined(__ARM_FEATURE_IDIV)
    static_assert(sizeof number <= 4);
    return static_cast<T>(static_cast<double>(number) / divisor);
#else
    return number / divisor;
#endif
}

} // namespace conf
