#include "world.h"

#include "in_place.h"
#include "namespaces.h"
#include "traces.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sched.h>
#include <string_view>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace pelm {
namespace {

constexpr const char* may_not_be_made_by_root =
    "; allow it by sysctl: user.max_user_namespaces above 0, kernel.unprivileged_userns_clone=1, "
    "as far as there are such; or let the machine's own places be used: --in-place, or "
    "PELM_IN_PLACE=1";

std::string make_namespaces() {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWIPC) == 0)
        return map_user({0, uid}, {0, gid});
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
    if (std::string problem = keep_mounts_inside(MS_PRIVATE); !problem.empty())
        return problem;
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
    const std::string_view wish = variable != nullptr ? variable : "";
    const bool is_allowed = may_work_in_place || wish == "1" || (wish != "0" && is_container());
    if (geteuid() == 0 && is_allowed && !child_can_enter_namespaces())
        return work_in_place();
    return enter_namespaces();
}

} // namespace pelm
