// The process's entry in the registry of plugins, and how long what it holds is the same.
#pragma once

#include "conf_plugin.h"

#include <cstdint>

namespace conf {

// Tells one life of a plugin from the next: another process, or a context or an entry lost since.
// Whoever runs a plugin's own code compares it, to know whether both are still its own.
enum class life : std::uint64_t {};
life this_life() noexcept;

// As get_plugin_from_hash(), with the life that the entry is in.
conf_plugin_data* find_entry(life* now) noexcept;

// To be called before anything of a context or an entry goes.
void end_life() noexcept;

} // namespace conf
