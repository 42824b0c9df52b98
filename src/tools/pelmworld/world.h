#pragma once

#include <string>

namespace pelm {

/// Moves the calling process, which must have one thread, into a private world: user, mount and
/// IPC namespaces of its own in which it is root, with empty file systems over /mnt, /var/tmp and
/// /var/log. Everything it starts lives there too, and the machine outside stays as it was. Where
/// root may not make user namespaces it enters the other two alone.
///
/// Where namespaces are refused to root of a container, or with may_work_in_place (or the variable
/// PELM_IN_PLACE=1) to root of any machine, it works in the machine's own places: see in_place.h.
/// PELM_IN_PLACE=0 keeps containers from doing so unasked.
///
/// Returns an empty text, or what could not be done; the process is then good for nothing but to
/// report it and exit.
[[nodiscard]] std::string enter_private_world(bool may_work_in_place);

} // namespace pelm
