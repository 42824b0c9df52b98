#include "covered_places.h"

#include "namespaces.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace pelm {
namespace {

constexpr std::size_t path_room = 256;

struct order {
    bool cover;
    char place[path_room];
    char by[path_room];
};

// An ordinary user needs a user namespace for it, and stays who he is there.
std::string make_namespaces() {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (uid == 0 && unshare(CLONE_NEWNS) == 0)
        return {};
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return failed("cannot make a mount namespace") + may_not_be_made;
    return map_user({uid, uid}, {gid, gid});
}

bool are_same(const char* a, const char* b) {
    struct stat one {};
    struct stat other {};
    return stat(a, &one) == 0 && stat(b, &other) == 0 && one.st_dev == other.st_dev &&
           one.st_ino == other.st_ino;
}

int carry_out(const order& what) {
    if (!what.cover)
        return umount2(what.place, MNT_DETACH | UMOUNT_NOFOLLOW) == 0 ? 0 : errno;
    if (are_same(what.place, what.by))
        return 0;
    return mount(what.by, what.place, nullptr, MS_BIND, nullptr) == 0 ? 0 : errno;
}

// Serves until the other end is closed.
[[noreturn]] void keep(int control, const std::string& directory) {
    std::string problem = make_namespaces();
    if (problem.empty())
        problem = keep_mounts_inside(MS_SLAVE);
    (void)!write(control, problem.c_str(), problem.size() + 1);
    order next{};
    while (read(control, &next, sizeof next) == sizeof next) {
        const int error = carry_out(next);
        (void)!write(control, &error, sizeof error);
    }
    std::error_code ignored;
    for (const auto& each : fs::directory_iterator(directory, ignored))
        (void)unlink(each.path().c_str());
    (void)rmdir(directory.c_str());
    _exit(0);
}

int open_of(pid_t process, const std::string& what, int flags) {
    const std::string path = "/proc/" + std::to_string(process) + "/" + what;
    return open(path.c_str(), flags | O_CLOEXEC);
}

} // namespace

covered_places::~covered_places() {
    for (const int each : {control_, user_, mounts_, root_, here_})
        if (each >= 0)
            close(each);
    if (keeper_ > 0)
        (void)waitpid(keeper_, nullptr, 0);
}

std::string covered_places::make(const std::string& directory) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return failed("cannot make a socket");
    keeper_ = fork();
    if (keeper_ == 0) {
        close(ends[0]);
        (void)setpgid(0, 0); // what ends all that a terminal runs is not to keep it from its work
        keep(ends[1], directory);
    }
    close(ends[1]);
    control_ = ends[0];
    if (keeper_ < 0)
        return failed("cannot start a process");
    char problem[2048] = "its keeper has ended";
    (void)!read(control_, problem, sizeof problem - 1);
    if (problem[0] != '\0')
        return problem;
    if (!are_same("/proc/self/ns/user", ("/proc/" + std::to_string(keeper_) + "/ns/user").c_str()))
        user_ = open_of(keeper_, "ns/user", O_RDONLY);
    mounts_ = open_of(keeper_, "ns/mnt", O_RDONLY);
    root_ = open_of(keeper_, "root", O_PATH | O_DIRECTORY);
    here_ = open_of(keeper_, "cwd", O_PATH | O_DIRECTORY);
    return mounts_ < 0 || root_ < 0 || here_ < 0 ? failed("cannot see a mount namespace") : "";
}

int covered_places::cover(const std::string& place, const std::string& by) const {
    return ask(true, place, by);
}

int covered_places::uncover(const std::string& place) const { return ask(false, place, ""); }

int covered_places::ask(bool cover, const std::string& place, const std::string& by) const {
    order next{.cover = cover, .place = "", .by = ""};
    if (place.size() >= path_room || by.size() >= path_room)
        return ENAMETOOLONG;
    place.copy(next.place, path_room - 1);
    by.copy(next.by, path_room - 1);
    int error = EPIPE;
    if (send(control_, &next, sizeof next, MSG_NOSIGNAL) != sizeof next ||
        read(control_, &error, sizeof error) != sizeof error)
        return EPIPE;
    return error;
}

bool covered_places::enter() const {
    return (user_ < 0 || setns(user_, CLONE_NEWUSER) == 0) && setns(mounts_, CLONE_NEWNS) == 0 &&
           fchdir(root_) == 0 && chroot(".") == 0 && fchdir(here_) == 0;
}

} // namespace pelm
