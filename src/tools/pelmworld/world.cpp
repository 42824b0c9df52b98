#include "world.h"

#include "in_place.h"
#include "traces.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
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

// What to allow, when the system refuses a user namespace, ...
constexpr const char* may_not_be_made =
    "; allow it by sysctl: user.max_user_namespaces above 0, kernel.unprivileged_userns_clone=1 "
    "and kernel.apparmor_restrict_unprivileged_userns=0, as far as there are such; or use sudo";
constexpr const char* may_not_be_made_by_root =
    "; allow it by sysctl: user.max_user_namespaces above 0, kernel.unprivileged_userns_clone=1, "
    "as far as there are such; or let the machine's own places be used: --in-place, or "
    "PELM_IN_PLACE=1";
// ... and when it gives one that cannot be used.
constexpr const char* may_not_be_used =
    "; AppArmor on current Ubuntu lets an ordinary user make a user namespace but not mount in it: "
    "allow it by sysctl kernel.apparmor_restrict_unprivileged_userns=0, or use sudo";

std::string map_to_root(uid_t uid, gid_t gid) {
    // The kernel refuses a group map from an ordinary user who could still change his groups.
    std::string problem = write_proc("/proc/self/setgroups", "deny");
    if (problem.empty())
        problem = write_proc("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    if (problem.empty())
        problem = write_proc("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
    return problem;
}

std::string make_namespaces() {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWIPC) == 0) {
        const std::string problem = map_to_root(uid, gid);
        return problem.empty() ? problem : problem + may_not_be_used;
    }
    const std::string problem = failed("cannot make a user namespace");
    if (uid == 0 && unshare(CLONE_NEWNS | CLONE_NEWIPC) == 0)
        return {};
    return problem + (uid == 0 ? may_not_be_made_by_root : may_not_be_made);
}

std::string mount_over(const char* place, const char* options) {
    if (mount("tmpfs", place, "tmpfs", MS_NOSUID | MS_NODEV, options) != 0)
        return failed(std::string("cannot mount an empty file system over ") + place) +
               may_not_be_used;
    return {};
}

std::string enter_namespaces() {
    if (std::string problem = make_namespaces(); !problem.empty())
        return problem;
    if (mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0) {
        const bool is_chroot = errno == EINVAL;
        return failed("cannot keep mounts private") +
               (is_chroot ? "; / is not a mount point, as in a chroot" : may_not_be_used);
    }
    for (const auto& [place, options] :
         {std::pair{"/mnt", "mode=0755"}, {"/var/tmp", "mode=1777"}, {"/var/log", "mode=0755"}})
        if (std::string problem = mount_over(place, options); !problem.empty())
            return problem;
    try {
        make_places();
    } catch (const std::filesystem::filesystem_error& error) {
        return error.what();
    }
    return {};
}

// A process that has entered half of a world cannot go back.
bool child_can_enter_namespaces() {
    (void)std::signal(SIGCHLD, SIG_DFL); // whoever started this may have chosen not to be told
    const pid_t child = fork();
    if (child == 0)
        _exit(enter_namespaces().empty() ? 0 : 1);
    int status = 1;
    return waitpid(child, &status, 0) == child && status == 0;
}

} // namespace

std::string enter_private_world(bool may_work_in_place) {
    if (is_inside_a_run())
        return {};
    const char* const variable = std::getenv("PELM_IN_PLACE");
    const bool is_allowed = may_work_in_place ||
                            (variable != nullptr && std::strcmp(variable, "1") == 0) ||
                            is_container();
    if (geteuid() == 0 && is_allowed && !child_can_enter_namespaces())
        return work_in_place();
    return enter_namespaces();
}

} // namespace pelm
