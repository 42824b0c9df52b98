// The plugin runtime's reports.
#pragma once

#include "conf_debug.h"
#include "support/report.h"

namespace conf {

// Writes to the plugin log at DBG_ERROR; _conf_write_log() serves the other levels. In both, %m is what
// errno said when they were called.
[[gnu::format(printf, 1, 2)]] failure plugin_failure(const char* format, ...) noexcept;

// How a text that may be missing stands in a log line.
inline const char* shown(const char* text) noexcept { return text != nullptr ? text : "(null)"; }

} // namespace conf
