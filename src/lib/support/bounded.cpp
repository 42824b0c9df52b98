#include "support/bounded.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace conf {

int memmove_s(void* dest, std::size_t capacity, const void* src, std::size_t count) noexcept {
    if (count > capacity)
        return -1;
    std::memmove(dest, src, count);
    return 0;
}

int memset_s(void* dest, std::size_t capacity, int byte, std::size_t count) noexcept {
    if (count > capacity)
        return -1;
    std::memset(dest, byte, count);
    asm volatile("" : : "r"(dest) : "memory"); // the fill counts as read, so it is not dropped
    return 0;
}

int strncpy_s(char* dest, std::size_t capacity, const char* src, std::size_t count) noexcept {
    if (capacity == 0)
        return -1;
    const std::size_t length = strnlen(src, count);
    if (length >= capacity) {
        dest[0] = '\0';
        return -1;
    }
    std::memcpy(dest, src, length);
    dest[length] = '\0';
    return 0;
}

int snprintf_s(char* dest, std::size_t capacity, std::size_t count, const char* format,
               ...) noexcept {
    if (capacity == 0)
        return -1;
    const std::size_t room = std::min(count, capacity - 1) + 1;
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(dest, room, format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<std::size_t>(length) >= room)
        return -1;
    return length;
}

int vsprintf_s(char* dest, std::size_t capacity, const char* format, va_list arguments) noexcept {
    if (capacity == 0)
        return -1;
    const int length = std::vsnprintf(dest, capacity, format, arguments);
    if (length >= 0 && static_cast<std::size_t>(length) < capacity)
        return length;
    dest[0] = '\0';
    return -1;
}

} // namespace conf
