// A plugin's context: made and released, the error it holds, and what is known of it beyond its fixed
// layout. Nobody else touches the error slot or frees a part of it.
#pragma once

#include "conf_api.h"
#include "conf_plugin.h"
#include "support/handle.h"

#include <cstdlib>

namespace conf {

class body_parser;

// What an answer carries when a callback failed without a text of its own. Never freed.
extern const char def_err_msg[];

// The text of an error: the default is never freed.
inline void free_error_text(char* text) noexcept {
    if (text != def_err_msg)
        std::free(text);
}
using error_text = unique_handle<freed_by<char, free_error_text>>;

// Makes the context of an entry that has none: with its name, buffers, and room for all callbacks, but
// without a connection. What a failure (reported, but for the name) leaves of it, _free_plugin_context()
// releases.
int make_context(conf_plugin_data* plugin, const char* name,
                 const econf_plugin_subpub_info_t* info) noexcept;

// What the messages of the process's context are parsed with.
body_parser* message_parser() noexcept;

// Closes the connection and releases the context. The entry goes with it, unless it holds a daemon's
// hooks: nothing may touch it afterwards. Does nothing without a context.
void _free_plugin_context() noexcept;

// Records an error in the plugin's context, which must be there: the code and a text of any length.
// A null format leaves the default text.
[[gnu::format(printf, 3, 4)]] void _plugin_set_error(conf_plugin_data* plugin, int err_code,
                                                     const char* err_msg, ...) noexcept;

// Takes what was recorded, so that it is reported once. @return the code, 0 for none whatever the text
int take_error(conf_plugin_context_t* ctxt, error_text* text) noexcept;

// The kind of a callback follows from its slot: configuration first, then status, then operations.
enum class slot_kind { kick_off, config, status, operate };

// @return the callback at an index, or null when there is none or it is known to be of another kind
econf_subpub_cb_t find_callback(const conf_plugin_context_t* ctxt, u32_t index,
                                slot_kind kind) noexcept;

// Between the type that a slot has and the type that its callback has.
template <class To, class From> To callback_cast(From callback) noexcept {
    return reinterpret_cast<To>(reinterpret_cast<void (*)()>(callback));
}

} // namespace conf
