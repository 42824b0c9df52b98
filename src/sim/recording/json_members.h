// One line of JSON that may be anything, taken apart into the members of its object.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace pelmsim {

struct json_member {
    bool is_text = false;
    std::string value; // of a text what it means, of anything else how it stands there
};

// Of members of one name the last counts. What an object or array holds stays as it stands.
using json_members = std::map<std::string, json_member, std::less<>>;

// Throws problem when it is no JSON object.
json_members read_members(std::string_view line);

} // namespace pelmsim
