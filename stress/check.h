// Conditions that end the program with a line that says where.
#pragma once

#include <string>

namespace stress {

// Whether a process holds much that is a sanitizer's, a checker's or an emulator's.
#ifdef STRESS_FOREIGN_MEMORY
inline constexpr bool has_foreign_memory = true;
#else
inline constexpr bool has_foreign_memory = false;
#endif

// Says what does not hold, and where, and ends the program, unless it holds.
void require(bool holds, const std::string& what, const char* file = __builtin_FILE(),
             int line = __builtin_LINE());

} // namespace stress
