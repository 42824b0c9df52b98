// Parts of messages, and frames in the transport's own buffers.
#pragma once

#include "conf_plugin.h"

namespace conf {

class body_parser;

// As add_text(), for a number in decimal.
xmlNode* add_number(xmlNode* parent, const char* name, long number) noexcept;

// What an answer says: an error, whose text may be null, or success without more. Null is reported.
xmlNode* new_error(int code, const char* text) noexcept;
xmlNode* new_result() noexcept;

// As plugin_parse_message(), for a buffer with a complete frame at its front, behind whose content all
// bytes are zero.
xmlNode* take_message(conf_buffer_t* buf, body_parser* parser) noexcept;

} // namespace conf
