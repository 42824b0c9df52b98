// What buffers are made of, and short ways with them. The transport's own keep a rule that others need
// not: every byte behind the content is zero. So what is taken out is wiped on the spot, and pages given
// back hold nothing.
#pragma once

#include "conf_buffer.h"

#include <cstddef>
#include <cstdint>

namespace conf {

constexpr std::int64_t page_bytes = 4096;
constexpr std::int64_t counter_bytes = offsetof(conf_buffer_t, buf);

constexpr std::size_t bytes(std::int64_t count) noexcept { return static_cast<std::size_t>(count); }

constexpr std::int64_t round_up_to_page(std::int64_t length) noexcept {
    return (length + page_bytes - 1) / page_bytes * page_bytes;
}

// What a mapping needs for its counters, its content and the zero byte behind it.
constexpr std::int64_t bytes_with(std::int64_t content) noexcept {
    return counter_bytes + content + 1;
}

inline std::size_t mapping_bytes(const conf_buffer_t* buf) noexcept {
    return bytes(counter_bytes + buf->total);
}

inline void set_capacity(conf_buffer_t* buf, std::int64_t mapping) noexcept {
    buf->total = static_cast<int>(mapping - counter_bytes);
}

// A buffer shrinks when it is at most half full. None is smaller than a page less its counters, 4088,
// so that of one page counts as well.
inline bool is_half_empty(const conf_buffer_t* buf) noexcept {
    return buf->total > 4087 && buf->total >= std::int64_t{buf->used} * 2;
}

// @return where len more bytes and a terminator fit without growing, or null
char* buffer_room(conf_buffer_t* buf, int len) noexcept;

// Counts bytes that were written into the room as content.
void buffer_added(conf_buffer_t* buf, int count) noexcept;

// Takes len bytes, not more than there are, off the front of a buffer that keeps the rule or is a
// page long, and wipes where they stood. Memory goes back as in conf_buffer_slim(), but what stays is
// not moved to another page.
void buffer_consume(conf_buffer_t* buf, int len) noexcept;

// Takes len bytes, 1 at least and not more than there are, off the front of any buffer and slims it. One
// that is a page long already is wiped where it stands, since it would move to another such page.
void buffer_cut(conf_buffer_t** buf, int len) noexcept;

} // namespace conf
