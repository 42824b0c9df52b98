#include "support/socket.h"

#include "support/bounded.h"
#include "support/handle.h"

#include <sys/socket.h>
#include <unistd.h>

namespace conf {
namespace {

constexpr mode_t socket_mode = 0660;

const sockaddr* generic(const sockaddr_un& address) noexcept {
    return reinterpret_cast<const sockaddr*>(&address);
}

// Gives a path's address to bind() or connect().
bool call(int (*function)(int, const sockaddr*, socklen_t), int sock, const char* path) noexcept {
    const sockaddr_un address = unix_address(path);
    return function(sock, generic(address), sizeof address) == 0;
}

} // namespace

sockaddr_un unix_address(const char* path) noexcept {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    copy_into(address.sun_path, path);
    return address;
}

bool bind_path(int sock, const char* path) noexcept {
    remove_path(path); // a file left by an earlier run must not block the bind
    const umask_guard mask{static_cast<mode_t>(~socket_mode)};
    return call(bind, sock, path);
}

bool connect_path(int sock, const char* path) noexcept { return call(connect, sock, path); }

ssize_t send_to_path(int sock, const char* path, const void* bytes, std::size_t count,
                     int flags) noexcept {
    const sockaddr_un address = unix_address(path);
    return sendto(sock, bytes, count, flags, generic(address), sizeof address);
}

void remove_path(const char* path) noexcept {
    (void)unlink(unix_address(path).sun_path); // it may be gone already
}

} // namespace conf
