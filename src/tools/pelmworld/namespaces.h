// What worlds are made of.
#pragma once

#include <string>
#include <sys/types.h>

namespace pelm {

// What to allow, when the system refuses a user namespace, ...
inline constexpr const char* may_not_be_made =
    "; allow it by sysctl: user.max_user_namespaces above 0, kernel.unprivileged_userns_clone=1 "
    "and kernel.apparmor_restrict_unprivileged_userns=0, as far as there are such; or use sudo";
// ... and when it gives one that cannot be used.
inline constexpr const char* may_not_be_used =
    "; AppArmor on current Ubuntu lets an ordinary user make a user namespace but not mount in it: "
    "allow it by sysctl kernel.apparmor_restrict_unprivileged_userns=0, or use sudo";

// Taken at once after the call that failed, before anything else can change errno.
std::string failed(const std::string& action);

struct mapped_id {
    id_t inside;
    id_t outside;
};

// Of the calling process, which has just made a user namespace. Returns an empty text, or what
// could not be done.
std::string map_user(mapped_id uid, mapped_id gid);

// From now on no mount of this namespace reaches another one; with MS_PRIVATE no other one reaches
// this one either, with MS_SLAVE it does.
std::string keep_mounts_inside(unsigned long how);

} // namespace pelm
