// Where the daemon's profile lies.
#pragma once

namespace conf {

// Read for the directory of the sockets; its inode also keys the shared memory.
inline constexpr char profile_path[] = "/mnt/squash/local/etc/pelmd/pelmd.conf";

} // namespace conf
