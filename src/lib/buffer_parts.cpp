#include "buffer_parts.h"

#include "support/bounded.h"

#include <sys/mman.h>

namespace conf {

char* buffer_room(conf_buffer_t* buf, int len) noexcept {
    return len < buf->total - buf->used ? buf->buf + buf->used : nullptr;
}

void buffer_added(conf_buffer_t* buf, int count) noexcept {
    buf->used += count;
    buf->buf[buf->used] = '\0';
}

void buffer_consume(conf_buffer_t* buf, int len) noexcept {
    const int left = buf->used - len;
    (void)memmove_s(buf->buf, bytes(buf->used), buf->buf + len, bytes(left));
    wipe(buf->buf + left, bytes(len));
    buf->used = left;
    const std::int64_t length = round_up_to_page(bytes_with(left));
    if (!is_half_empty(buf) || bytes(length) == mapping_bytes(buf))
        return;
    // Emulators of other processors have been seen to take the pages behind along with mremap.
    char* rest = reinterpret_cast<char*>(buf) + length;
    if (munmap(rest, mapping_bytes(buf) - bytes(length)) < 0)
        return; // the buffer serves as it is
    set_capacity(buf, length);
}

void buffer_cut(conf_buffer_t** buf, int len) noexcept {
    if (mapping_bytes(*buf) == bytes(page_bytes))
        return buffer_consume(*buf, len);
    conf_buffer_remove(*buf, 0, len);
    conf_buffer_slim(buf);
}

} // namespace conf
