#include "wire/socket_holders.h"

#include "model/owners.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>

namespace pelmsim {
namespace {

using std::filesystem::directory_iterator;

struct question {
    nlmsghdr head;
    unix_diag_req about;
};

// The number in an answer's attribute; 0 when it has none, or is an error.
std::uint32_t peer_in(const char* bytes, std::size_t count) {
    nlmsghdr head{};
    constexpr std::size_t skipped = NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(unix_diag_msg));
    rtattr attribute{};
    std::uint32_t peer = 0;
    if (count < skipped + RTA_LENGTH(sizeof peer))
        return 0;
    std::memcpy(&head, bytes, sizeof head);
    std::memcpy(&attribute, bytes + skipped, sizeof attribute);
    if (head.nlmsg_type == SOCK_DIAG_BY_FAMILY && attribute.rta_type == UNIX_DIAG_PEER)
        std::memcpy(&peer, bytes + skipped + RTA_LENGTH(0), sizeof peer);
    return peer;
}

// The inode of the other end, which only the kernel knows; 0 when it does not say.
std::uint32_t inode_of_other_end(int socket) {
    struct stat ours {};
    const unique_fd kernel(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
    if (!kernel || fstat(socket, &ours) != 0)
        return 0;
    question asked{};
    asked.head.nlmsg_len = sizeof asked;
    asked.head.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    asked.head.nlmsg_flags = NLM_F_REQUEST;
    asked.about.sdiag_family = AF_UNIX;
    asked.about.udiag_states = ~std::uint32_t{0};
    asked.about.udiag_ino = static_cast<std::uint32_t>(ours.st_ino);
    asked.about.udiag_show = UDIAG_SHOW_PEER;
    std::ranges::fill(asked.about.udiag_cookie, ~std::uint32_t{0});
    std::array<char, 1024> answer{};
    if (send(kernel.get(), &asked, sizeof asked, 0) < 0)
        return 0;
    // The kernel has answered before send() returns.
    const ssize_t count = recv(kernel.get(), answer.data(), answer.size(), MSG_DONTWAIT);
    return count < 0 ? 0 : peer_in(answer.data(), static_cast<std::size_t>(count));
}

bool holds(const std::filesystem::path& process, const std::string& wanted) {
    std::error_code unreadable; // it has gone, or is somebody else's
    for (directory_iterator each(process / "fd", unreadable), end; !unreadable && each != end;
         each.increment(unreadable)) {
        std::error_code closed;
        if (std::filesystem::read_symlink(each->path(), closed) == wanted)
            return true;
    }
    return false;
}

} // namespace

std::vector<pid_t> holders_of_other_end(int socket) {
    std::vector<pid_t> found;
    const std::uint32_t inode = inode_of_other_end(socket);
    if (inode == 0)
        return found;
    const std::string wanted = "socket:[" + std::to_string(inode) + "]";
    std::error_code failed;
    for (directory_iterator each("/proc", failed), end; !failed && each != end;
         each.increment(failed))
        if (const long pid = std::strtol(each->path().filename().c_str(), nullptr, 10);
            pid > 0 && holds(each->path(), wanted))
            found.push_back(static_cast<pid_t>(pid));
    std::ranges::sort(found);
    return found;
}

} // namespace pelmsim
