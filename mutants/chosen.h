// How a fault that is compiled in beside the right code is chosen when a program runs.
#pragma once

#include <cstdlib>
#include <libxml/tree.h>
#include <type_traits>

namespace conf {

inline const int chosen_fault = [] {
    const char* number = std::getenv("PELM_FAULT");
    return number != nullptr ? std::atoi(number) : 0;
}();

// Nothing that asks is a constant any more, but it may stand in functions that could be one.
constexpr bool chosen(int fault) noexcept {
    if (std::is_constant_evaluated())
        std::abort();
    return fault == chosen_fault;
}

// An owner of a tree, a list of siblings or a document that frees it as it is while the fault is
// chosen, instead of wiping it before.
template <int fault, class Owner> class unwiped : public Owner {
public:
    using Owner::Owner;
    ~unwiped() {
        if (!chosen(fault))
            return;
        if constexpr (std::is_same_v<typename Owner::type, xmlDoc*>)
            xmlFreeDoc(this->release());
        else
            xmlFreeNodeList(this->release());
    }
};

} // namespace conf
