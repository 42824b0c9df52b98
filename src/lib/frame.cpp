#include "frame.h"

#include "support/xml.h"

#include <cstddef>

static_assert(sizeof(msg_head_t) == 12);
static_assert(offsetof(msg_head_t, length) == 4);
static_assert(offsetof(msg_head_t, seq) == 8);
static_assert(offsetof(msg_head_t, format) == 10);
static_assert(sizeof(bool_t) == 4);

namespace conf {

frame_fault append_frame(conf_buffer_t** out, xmlNode* root, u16_t seq) noexcept {
    secret_xml_buffer body{xmlBufferCreate()};
    if (!body)
        return frame_fault::no_xml_buffer;
    if (dump_node(body.get(), root) <= 0)
        return frame_fault::not_dumped;
    const int body_bytes = xmlBufferLength(body.get());
    const int start = conf_buffer_length(*out);
    msg_head_t head{CONF_MSG_MAGIC, static_cast<u32_t>(body_bytes), seq, 0};
    if (conf_buffer_append(out, &head, header_bytes) < 0)
        return frame_fault::no_header;
    if (conf_buffer_append(out, const_cast<xmlChar*>(xmlBufferContent(body.get())), body_bytes) <
        0) {
        conf_buffer_remove(*out, start, header_bytes);
        wipe((*out)->buf + start,
             header_bytes); // behind the content all is zero in our own buffers
        return frame_fault::no_body;
    }
    return frame_fault::none;
}

} // namespace conf
