// What a request of a peer is answered with.
#pragma once

#include "model/outcome.h"
#include "model/xml.h"

namespace pelmsim {

struct reply {
    unique_node body; // the element that the answer holds
    outcome result = {};
};

// Of plugins and of agents' users, in bytes: names are in each line about them.
inline constexpr std::size_t longest_name = 255;

// With that error.
inline reply refusal(int code, const std::string& text) {
    unique_node error = new_element("error");
    add_element(error.get(), "code", std::to_string(code));
    add_element(error.get(), "message", text);
    return {std::move(error), outcome::error(code, text)};
}

} // namespace pelmsim
