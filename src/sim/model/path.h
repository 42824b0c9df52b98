// Data paths, as in /net:interfaces/interface[name="eth0"]/mtu.
#pragma once

#include "model/owners.h"

#include <string>
#include <string_view>
#include <vector>

namespace pelmsim {

struct path_key {
    std::string name; // "." stands for the element's own text
    std::string value;

    bool operator==(const path_key&) const = default;
};

struct path_step {
    std::string prefix; // empty when none was written
    std::string name;
    std::vector<path_key> keys;
};

class data_path {
public:
    data_path() = default; // "/", which is everything

    // The first slash may be missing, for operations often have but a name. Key values may stand in
    // double or single quotes, or bare. Throws problem.
    explicit data_path(std::string_view text);

    std::vector<path_step> steps;

    std::string text() const;  // with every key value in double quotes
    std::string names() const; // the steps' names alone: /interfaces/interface/mtu

    std::size_t weight() const; // about as many bytes as it takes

    // Whether other is the same path: all keys have to be, in whatever order.
    bool is(const data_path& other) const;

    // Whether other is the same path or lies below it. A key counts where both sides name it.
    bool covers(const data_path& other) const;
};

// Whether the element is what the step at this index names. Prefixes count only where both sides
// have one; a step or an element without takes that of the one above it.
bool matches(const data_path& path, std::size_t index, const xmlNode* element);

} // namespace pelmsim
