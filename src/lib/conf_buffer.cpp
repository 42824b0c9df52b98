#include "conf_buffer.h"

#include "buffer_parts.h"
#include "support/bounded.h"
#include "support/report.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sys/mman.h>

using namespace conf;

static_assert(offsetof(conf_buffer_t, total) == 0 && offsetof(conf_buffer_t, used) == 4);
static_assert(offsetof(conf_buffer_t, buf) == 8 && sizeof(conf_buffer_t) == 8);

namespace {

constexpr std::int64_t headroom_bytes = 0x20000;

// MADV_POPULATE_WRITE, which older headers lack, and older kernels refuse.
constexpr int populate = 23;

// The smallest growth is to the headroom itself. Above it a small addition brings as much again, so
// that a stream of them seldom moves the buffer; a large one gets just what it needs.
std::int64_t grown_bytes(std::int64_t content, int added) noexcept {
    const std::int64_t need = bytes_with(content);
    if (need < headroom_bytes)
        return headroom_bytes;
    return round_up_to_page(added < headroom_bytes ? need + headroom_bytes : need);
}

// A buffer with room for len more bytes: this one, or one that has taken its place. Null without
// memory, the buffer is then untouched; nothing is reported for a length that no int can hold.
conf_buffer_t* conf_buffer_expand(conf_buffer_t* buf, int len) noexcept {
    const std::int64_t content = std::int64_t{buf->used} + len;
    if (content < buf->total)
        return buf;
    const std::int64_t wanted = grown_bytes(content, len);
    if (wanted > INT_MAX)
        return nullptr;
    const int length = static_cast<int>(wanted);
    // Pages that move are neither copied nor given back, so nothing is left behind to wipe. The new
    // ones are zero, and what was removed earlier lies where the added bytes come to stand.
    const std::size_t known = mapping_bytes(buf);
    void* moved = mremap(buf, known, bytes(length), MREMAP_MAYMOVE);
    if (moved == MAP_FAILED)
        return syslog_failure("[ERROR] Allocate %d byte(s) memory failed(%m).\n", length);
    auto* grown = static_cast<conf_buffer_t*>(moved);
    // Of what comes in many pieces all pages are soon used: at once they cost half of one by one.
    if (length > headroom_bytes)
        (void)madvise(static_cast<char*>(moved) + known, bytes(length) - known, populate);
    set_capacity(grown, length);
    return grown;
}

// Puts len bytes at offset, which does not lie beyond the content, and stores the buffer they are in.
int put(conf_buffer_t** handle, int offset, const void* context, int len) noexcept {
    conf_buffer_t* buf = conf_buffer_expand(*handle, len);
    if (buf == nullptr)
        return syslog_failure("[ERROR] Expand buffer failed.\n");
    char* place = buf->buf + offset;
    const std::size_t room = bytes(buf->total - offset);
    (void)memmove_s(place + len, room - bytes(len), place, bytes(buf->used - offset));
    (void)memmove_s(place, room, context, bytes(len));
    buf->used += len;
    buf->buf[buf->used] = '\0';
    *handle = buf;
    return 0;
}

bool can_put(conf_buffer_t** buf, const void* context, int len) noexcept {
    return buf != nullptr && *buf != nullptr && context != nullptr && len >= 0;
}

} // namespace

conf_buffer_t* conf_buffer_create(int size) {
    const std::int64_t length = round_up_to_page(bytes_with(size));
    if (size < 0 || length > INT_MAX) {
        errno = EINVAL;
        return syslog_failure("[ERROR] Allocate memory failed(%m).\n");
    }
    void* memory =
        mmap(nullptr, bytes(length), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return syslog_failure("[ERROR] Allocate memory failed(%m).\n");
    auto* buf = static_cast<conf_buffer_t*>(memory); // anonymous pages come zeroed
    set_capacity(buf, length);
    return buf;
}

void conf_buffer_destroy(conf_buffer_t* buf) {
    if (buf == nullptr)
        return;
    wipe(buf->buf, bytes(buf->total));
    (void)munmap(buf, mapping_bytes(buf)); // a whole mapping of our own cannot fail to go
}

int conf_buffer_insert(conf_buffer_t** buf, int offset, void* context, int len) {
    if (!can_put(buf, context, len))
        return syslog_failure("[ERROR] Error input parameter(buf=%p, context=%p).\n",
                              static_cast<void*>(buf), context);
    if (offset < 0 || offset > (*buf)->used)
        return syslog_failure("[ERROR] Error offset(offset=%d, buf.used=%d).\n", offset,
                              (*buf)->used);
    return put(buf, offset, context, len);
}

int conf_buffer_append(conf_buffer_t** buf, void* context, int len) {
    if (!can_put(buf, context, len))
        return syslog_failure("[ERROR] Error input parameter(buf=%p, context=%p).\n",
                              static_cast<void*>(buf), context);
    return put(buf, (*buf)->used, context, len);
}

void conf_buffer_remove(conf_buffer_t* buf, int start, int len) {
    if (buf == nullptr || start < 0 || len <= 0 || start >= buf->used) {
        syslog_failure("[ERROR] Error input parameter(buf=%p, start=%d, len=%d).\n",
                       static_cast<void*>(buf), start, len);
        return;
    }
    const int left = buf->used - start; // compared without the sum of start and len, which may wrap
    if (len < left) {
        char* place = buf->buf + start;
        (void)memmove_s(place, bytes(left), place + len, bytes(left - len));
        buf->used -= len;
    } else {
        buf->used = start;
    }
    buf->buf[buf->used] = '\0';
}

void conf_buffer_flush(conf_buffer_t* buf) {
    if (buf == nullptr)
        return;
    buf->used = 0;
    buf->buf[0] = '\0';
}

void conf_buffer_slim(conf_buffer_t** buf) {
    if (buf == nullptr || *buf == nullptr) {
        syslog_failure("[ERROR] Error input parameter(buf=%p).\n", static_cast<void*>(buf));
        return;
    }
    conf_buffer_t* old = *buf;
    if (!is_half_empty(old))
        return;
    conf_buffer_t* slim = conf_buffer_create(old->used);
    if (slim == nullptr)
        return;
    (void)memmove_s(slim->buf, bytes(slim->total - 1), old->buf, bytes(old->used));
    slim->used = old->used;
    conf_buffer_destroy(old);
    *buf = slim;
}

void* conf_buffer_data(conf_buffer_t* buf) {
    if (buf == nullptr)
        return syslog_failure("[ERROR] Error input parameter.\n");
    return buf->buf;
}

int conf_buffer_length(conf_buffer_t* buf) {
    if (buf == nullptr) {
        syslog_failure("[ERROR] Error input parameter.\n");
        return 0;
    }
    return buf->used;
}
