// Where a Unix socket is.
#pragma once

#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

namespace pelmsim {

// A path that is too long is cut, as the library does it.
inline sockaddr_un unix_address(std::string_view path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

} // namespace pelmsim
