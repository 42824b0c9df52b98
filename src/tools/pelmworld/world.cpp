#include "world.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pelm {
namespace {

// Taken at once after the call that failed, before anything else can change errno.
std::string failed(const std::string& action) { return action + ": " + std::strerror(errno); }

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

std::string map_to_root(uid_t uid, gid_t gid) {
    // The kernel refuses a group map from an ordinary user who could still change his groups.
    std::string problem = write_proc("/proc/self/setgroups", "deny");
    if (problem.empty())
        problem = write_proc("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    if (problem.empty())
        problem = write_proc("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
    return problem;
}

std::string enter_namespaces() {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWIPC) == 0)
        return map_to_root(uid, gid);
    const std::string problem = failed("cannot make a user namespace");
    if (uid == 0 && unshare(CLONE_NEWNS | CLONE_NEWIPC) == 0)
        return {};
    return problem + " (see user.max_user_namespaces and kernel.unprivileged_userns_clone in "
                     "sysctl, or run as root)";
}

std::string cover(const char* place, const char* options) {
    if (mount("tmpfs", place, "tmpfs", MS_NOSUID | MS_NODEV, options) != 0)
        return failed(std::string("cannot mount an empty file system over ") + place);
    return {};
}

} // namespace

std::string enter_private_world() {
    if (std::string problem = enter_namespaces(); !problem.empty())
        return problem;
    if (mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0)
        return failed("cannot keep mounts private (in a chroot, / must be a mount point)");
    for (const auto& [place, options] :
         {std::pair{"/mnt", "mode=0755"}, {"/var/tmp", "mode=1777"}, {"/var/log", "mode=0755"}})
        if (std::string problem = cover(place, options); !problem.empty())
            return problem;
    std::error_code error;
    std::filesystem::create_directories("/mnt/squash/local/etc/pelmd", error);
    return error ? "cannot make the profile's directory: " + error.message() : std::string{};
}

} // namespace pelm
