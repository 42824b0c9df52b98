// UNIX-domain sockets at a path.
#pragma once

#include <cstddef>
#include <sys/types.h>
#include <sys/un.h>

namespace conf {

// The longest path that an address holds, in characters.
constexpr unsigned longest_socket_path = sizeof(sockaddr_un::sun_path) - 1;

// The address of a path, cut where it is too long. Give it to the system with its full size.
sockaddr_un unix_address(const char* path) noexcept;

// Binds a socket to a path in place of any file there, with mode 0660 whatever the process's umask.
// @return false with errno set
bool bind_path(int sock, const char* path) noexcept;

// @return false with errno set
bool connect_path(int sock, const char* path) noexcept;

// As sendto() with an unconnected datagram socket.
ssize_t send_to_path(int sock, const char* path, const void* bytes, std::size_t count,
                     int flags) noexcept;

// Removes the file that bind_path() made, if it is there.
void remove_path(const char* path) noexcept;

} // namespace conf
