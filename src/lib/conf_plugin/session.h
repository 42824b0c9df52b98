// The error that answers the request being served.
#pragma once

#include "conf_plugin.h"

namespace conf {

// Records an error in the plugin's context, which must be there: the code and a text of any length.
// A null format leaves the default text.
[[gnu::format(printf, 3, 4)]] void _plugin_set_error(conf_plugin_data* plugin, int err_code,
                                                     const char* err_msg, ...) noexcept;

} // namespace conf
