// The process's entry in the registry of plugins, and what is known of its slots.
#pragma once

#include "conf_plugin.h"
#include "support/handle.h"

#include <cstdint>
#include <cstdlib>

namespace conf {

// What an answer carries when a callback failed without a text of its own. Never freed.
extern const char def_err_msg[];

// def_err_msg in the shape of conf_plugin_context_t::err_msg.
inline char* default_error() noexcept { return const_cast<char*>(def_err_msg); }

// The text of an error: the default is never freed.
struct error_text_traits {
    using type = char*;
    static constexpr type empty = nullptr;
    static void close(type text) noexcept {
        if (text != def_err_msg)
            std::free(text);
    }
};
using error_text = unique_handle<error_text_traits>;

// Closes the connection and releases the context. The entry goes with it, unless it holds a daemon's
// hooks: nothing may touch it afterwards. Does nothing without a context.
void _free_plugin_context() noexcept;

// Tells one life of a plugin from the next: another process, or a context or an entry lost since.
// Whoever runs a plugin's own code compares it, to know whether both are still its own.
enum class life : std::uint64_t {};
life this_life() noexcept;

// The kind of a callback follows from its slot: configuration first, then status, then operations.
// It is kept beside the context, whose layout is fixed.
enum class slot_kind { kick_off, config, status, operate };

// Notes how many slots of the first two kinds a context has.
void record_slots(const conf_plugin_context_t* ctxt, u32_t configs, u32_t statuses) noexcept;

// @return the callback at an index, or null when there is none or it is known to be of another kind
econf_subpub_cb_t find_callback(const conf_plugin_context_t* ctxt, u32_t index,
                                slot_kind kind) noexcept;

// Between the type that a slot has and the type that its callback has.
template <class To, class From> To callback_cast(From callback) noexcept {
    return reinterpret_cast<To>(reinterpret_cast<void (*)()>(callback));
}

} // namespace conf
