// Numbers in messages, and frames in the transport's own buffers.
#pragma once

#include "conf_plugin.h"

namespace conf {

// As add_text(), for a number in decimal.
xmlNode* add_number(xmlNode* parent, const char* name, long number) noexcept;

// As plugin_parse_message(), for a buffer with a complete frame at its front, behind whose content all
// bytes are zero.
xmlNode* _take_message(conf_buffer_t* buf) noexcept;

} // namespace conf
