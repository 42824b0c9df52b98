// Frames in the transport's own buffers.
#pragma once

#include "conf_plugin.h"

namespace conf {

// As plugin_parse_message(), for a buffer with a complete frame at its front, behind whose content all
// bytes are zero.
xmlNode* _take_message(conf_buffer_t* buf) noexcept;

} // namespace conf
