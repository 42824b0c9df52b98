// Who is to be told of what, and in what order; nothing is sent here.
#pragma once

#include "daemon/registration.h"
#include "model/keys.h"

#include <span>
#include <vector>

namespace pelmsim {

struct subscriber {
    bool active;
    std::span<const registration> registrations;
};

struct publication {
    std::size_t to; // which of the subscribers
    registration at;
    data_path path;
    int oper;
    bool more = false; // the same one is to hear of another
};

using publication_plan = std::vector<publication>; // in the order of telling

// What is not the same in both trees, for those whose paths it concerns.
publication_plan plan_changes(std::span<const subscriber> all, const tree& before,
                              const tree& after, const key_book& keys);

// These bits for a path, for those who subscribed to it or to what it lies in.
publication_plan plan_bits(std::span<const subscriber> all, const data_path& path, int oper);

// The paths that were subscribed to below one, in words: "/a, /b".
std::string subscribed_below(std::span<const subscriber> all, const data_path& path);

// How the first ones of a plan are taken back: the last first, with the reverse operation.
publication_plan plan_back(const publication_plan& done, std::size_t count);

} // namespace pelmsim
