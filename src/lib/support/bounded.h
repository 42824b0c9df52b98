// Copies, fills and formatting that know their destination's room: they fail with -1 rather than
// write beyond it.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstring>

namespace conf {

inline int memcpy_s(void* dest, std::size_t capacity, const void* src, std::size_t count) noexcept {
    if (count > capacity)
        return -1;
    std::memcpy(dest, src, count);
    return 0;
}

// Fills an object from bytes that lie at any address. The object's size is the room.
template <class T>
[[gnu::always_inline]] inline void copy_from(T& object, const void* bytes) noexcept {
    (void)memcpy_s(&object, sizeof object, bytes, sizeof object);
}

// The areas may overlap.
int memmove_s(void* dest, std::size_t capacity, const void* src, std::size_t count) noexcept;

// Is never optimised away, so it may be the last thing that happens to memory.
int memset_s(void* dest, std::size_t capacity, int byte, std::size_t count) noexcept;

inline void wipe(void* area, std::size_t count) noexcept { (void)memset_s(area, count, 0, count); }

// Copies at most count characters and terminates; leaves dest empty when they do not fit.
int strncpy_s(char* dest, std::size_t capacity, const char* src, std::size_t count) noexcept;

// Formats at most count characters and terminates; cuts what is longer.
[[gnu::format(printf, 4, 5)]] int snprintf_s(char* dest, std::size_t capacity, std::size_t count,
                                             const char* format, ...) noexcept;

// Leaves dest empty when the output and its terminator do not fit.
[[gnu::format(printf, 3, 0)]] int vsprintf_s(char* dest, std::size_t capacity, const char* format,
                                             va_list arguments) noexcept;

// Fills an array with as much of a text as it holds, terminated always.
template <std::size_t room> void copy_into(char (&dest)[room], const char* text) noexcept {
    (void)strncpy_s(dest, room, text, room - 1); // cannot fail: room - 1 characters fit
}

} // namespace conf
