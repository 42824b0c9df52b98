// Frames: a 12-byte header and one XML element, on the plugin's and the agent's connections alike.
#pragma once

#include "conf_buffer.h"
#include "conf_def.h"
#include "support/bounded.h"

#include <cstddef>
#include <cstdint>
#include <libxml/tree.h>

namespace conf {

constexpr int header_bytes = sizeof(msg_head_t);

// Where framing gave up; each caller has its own words for it.
enum class frame_fault { none, no_xml_buffer, not_dumped, no_header, no_body };

// Appends root as one frame. On a fault the buffer holds what it held before.
frame_fault append_frame(conf_buffer_t** out, xmlNode* root, u16_t seq) noexcept;

// A word of the header at the front of a buffer that holds one; it may lie at any address.
inline u32_t front_word(const conf_buffer_t* buf, std::size_t offset) noexcept {
    u32_t word;
    copy_from(word, buf->buf + offset);
    return word;
}
inline u32_t front_magic(const conf_buffer_t* buf) noexcept {
    return front_word(buf, offsetof(msg_head_t, magic));
}
inline u32_t front_length(const conf_buffer_t* buf) noexcept {
    return front_word(buf, offsetof(msg_head_t, length));
}

inline u16_t front_seq(const conf_buffer_t* buf) noexcept {
    u16_t seq;
    copy_from(seq, buf->buf + offsetof(msg_head_t, seq));
    return seq;
}

// Bytes of the whole frame, header included; more than 32 bits can hold for a hostile length.
inline std::uint64_t frame_bytes(u32_t length) noexcept {
    return std::uint64_t{length} + header_bytes;
}

} // namespace conf
