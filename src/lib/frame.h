// Frames: a 12-byte header and one XML element, on the plugin's and the agent's connections alike.
#pragma once

#include "conf_buffer.h"
#include "conf_def.h"
#include "support/bounded.h"

#include <libxml/tree.h>

namespace conf {

constexpr int header_bytes = sizeof(msg_head_t);

// Where framing gave up; each caller has its own words for it.
enum class frame_fault { none, no_xml_buffer, not_dumped, no_header, no_body };

// Appends root as one frame. On a fault the buffer holds what it held before.
frame_fault append_frame(conf_buffer_t** out, xmlNode* root, u16_t seq) noexcept;

// Copies out the header at the front of a buffer that holds one; it may lie at any address.
inline msg_head_t front_header(const conf_buffer_t* buf) noexcept {
    msg_head_t head;
    (void)memcpy_s(&head, sizeof head, buf->buf, sizeof head);
    return head;
}

// Bytes of the whole frame, header included; more than 32 bits can hold for a hostile length.
inline std::uint64_t frame_bytes(const msg_head_t& head) noexcept {
    return std::uint64_t{head.length} + sizeof head;
}

} // namespace conf
