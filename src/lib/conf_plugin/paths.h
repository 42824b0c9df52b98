// Key values in data paths.
#pragma once

namespace conf {

// Takes the double quotes off key values in place, wherever that leaves no doubt about where a value
// ends: a value that holds a quote, a backslash, a comma or a "]" of its own keeps them. The bytes
// freed at the end are zeroed.
// @return src, or null for null
char* datastore_path_rm_quotes(char* src) noexcept;

} // namespace conf
