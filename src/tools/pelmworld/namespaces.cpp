#include "namespaces.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

namespace pelm {
namespace {

std::string write_proc(const char* path, const std::string& text) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return failed(std::string("cannot open ") + path);
    const ssize_t written = write(fd, text.data(), text.size());
    std::string problem;
    if (written != static_cast<ssize_t>(text.size()))
        problem = failed(std::string("cannot write ") + path);
    close(fd);
    return problem;
}

std::string line_of(mapped_id id) {
    return std::to_string(id.inside) + " " + std::to_string(id.outside) + " 1";
}

} // namespace

std::string failed(const std::string& action) { return action + ": " + std::strerror(errno); }

std::string map_user(mapped_id uid, mapped_id gid) {
    // The kernel refuses a group map from an ordinary user who could still change his groups.
    std::string problem = write_proc("/proc/self/setgroups", "deny");
    if (problem.empty())
        problem = write_proc("/proc/self/uid_map", line_of(uid));
    if (problem.empty())
        problem = write_proc("/proc/self/gid_map", line_of(gid));
    return problem.empty() ? problem : problem + may_not_be_used;
}

std::string keep_mounts_inside(unsigned long how) {
    if (mount("none", "/", "none", MS_REC | how, nullptr) == 0)
        return {};
    const bool is_chroot = errno == EINVAL;
    return failed("cannot keep mounts private") +
           (is_chroot ? "; / is not a mount point, as in a chroot" : may_not_be_used);
}

} // namespace pelm
