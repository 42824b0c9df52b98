// A lock file says whose turn it is. Its holder writes into it, before it makes anything, its name
// and all that was there already, and touches it each second. So the next one knows what a run that
// was killed has left behind: what was not there before and is no younger than the last touch.
#include "in_place.h"

#include "traces.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>
#include <stdexcept>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace pelm {
namespace {

constexpr const char* lock_path = "/run/pelmworld.lock";
constexpr const char* run_variable = "PELM_IN_PLACE_RUN"; // marks the processes of a run
constexpr std::time_t touch_seconds = 1;
constexpr std::time_t late_seconds = 5; // that a touch can be late on a busy machine

[[noreturn]] void give_up(const std::string& action) {
    throw std::runtime_error(action + ": " + std::strerror(errno));
}

void say(const char* text) {
    (void)std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, text);
}

// What a run is called, and what was there before it.
struct record {
    std::string run;
    std::set<std::string> before;
    std::set<pid_t> children = children_of_this_process(); // of other people's, and not written

    // Strings with their zero bytes; an empty one ends a record that was written whole.
    static record parse(const std::string& text) {
        record result;
        std::istringstream strings(text);
        if (!text.ends_with(std::string(2, '\0')) || !std::getline(strings, result.run, '\0'))
            return {};
        for (std::string name; std::getline(strings, name, '\0');)
            result.before.insert(name);
        return result;
    }

    std::string text() const {
        std::string result = run + '\0';
        for (const std::string& name : before)
            result += name + '\0';
        return result + '\0';
    }
};

record read_record() {
    std::ifstream file(lock_path, std::ios::binary);
    return record::parse(std::string(std::istreambuf_iterator<char>(file), {}));
}

// Held from here to the end of the process that holds it last.
class lock_file {
public:
    lock_file() {
        do
            reopen();
        while (!is_in_its_place()); // the one before removed it
    }
    lock_file(const lock_file&) = delete;
    ~lock_file() { close(fd_); }

    std::time_t last_touch() const { return status().st_mtime; }
    void touch() const { (void)futimens(fd_, nullptr); }

    // Holds on beyond this object, until the process ends or becomes another program.
    void keep() const { (void)fcntl(fd_, F_DUPFD_CLOEXEC, 0); }

    void write(const std::string& text) const {
        if (ftruncate(fd_, 0) != 0 ||
            pwrite(fd_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
            give_up(std::string("cannot write ") + lock_path);
    }

    static void remove() { (void)unlink(lock_path); }

private:
    void reopen() {
        close(fd_);
        fd_ = open(lock_path, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd_ < 0)
            give_up(std::string("cannot open ") + lock_path);
        if (flock(fd_, LOCK_EX | LOCK_NB) == 0)
            return;
        if (!std::exchange(has_waited_, true))
            say("another run is at work in place: waiting for its end");
        if (flock(fd_, LOCK_EX) != 0)
            give_up(std::string("cannot lock ") + lock_path);
    }

    bool is_in_its_place() const {
        struct stat there {};
        const struct stat here = status();
        return lstat(lock_path, &there) == 0 && there.st_ino == here.st_ino &&
               there.st_dev == here.st_dev;
    }

    struct stat status() const {
        struct stat file {};
        (void)fstat(fd_, &file);
        return file;
    }

    int fd_ = -1;
    bool has_waited_ = false;
};

// Keeps signals waiting, those aside that speak of the process itself or stop it.
class held_signals {
public:
    held_signals() {
        sigfillset(&held);
        for (const int each : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS, SIGTSTP,
                               SIGTTIN, SIGTTOU, SIGCONT})
            sigdelset(&held, each);
        sigprocmask(SIG_BLOCK, &held, &before_);
    }
    held_signals(const held_signals&) = delete;
    ~held_signals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

    sigset_t held{};

private:
    sigset_t before_{};
};

std::string mark_of(const std::string& run) { return std::string(run_variable) + "=" + run; }

constexpr std::time_t whenever = std::numeric_limits<std::time_t>::max();

// Ends and removes what a run has left that changed nothing after a time.
void clear(const record& run, std::time_t until) {
    if (end_processes_of(mark_of(run.run), run.children) && until != whenever)
        until = std::time(nullptr);
    for (const trace& each : list_traces())
        if (!run.before.contains(each.name) && !has_changed_since(each, until))
            remove_trace(each.name);
}

std::string what_lies_there(const std::vector<trace>& all) {
    std::string names;
    for (const trace& each : all)
        if (is_a_daemons(each.name))
            names += (names.empty() ? "" : ", ") + each.name +
                     (is_listened_at(each.name) ? " (somebody listens)" : "");
    // Anybody may have made them, and a terminal obeys some.
    std::ranges::replace_if(
        names, [](unsigned char c) { return c < ' ' || c == 0x7F; }, '?');
    return names;
}

record begin_run(const std::vector<trace>& all) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    record run;
    run.run = std::to_string(getpid()) + "." + std::to_string(now.tv_sec) + "." +
              std::to_string(now.tv_nsec);
    for (const trace& each : all)
        run.before.insert(each.name);
    return run;
}

int wait_for(pid_t child, const lock_file& lock, const sigset_t& signals) {
    for (;;) {
        lock.touch();
        const timespec limit{touch_seconds, 0};
        siginfo_t signal{};
        const int number = sigtimedwait(&signals, &signal, &limit);
        int status = 0;
        for (pid_t ended = 0; (ended = waitpid(-1, &status, WNOHANG)) > 0;)
            if (ended == child)
                return status;
        // What the kernel sends comes from the terminal, and to the child as well; but that the
        // terminal has gone, it may say to this process alone.
        if (number == SIGHUP || (number > 0 && number != SIGCHLD && signal.si_code <= 0)) {
            (void)kill(child, number);
            (void)kill(child, SIGCONT); // it may have been stopped, and would not hear it
        }
    }
}

[[noreturn]] void end_like(int status) {
    if (!WIFSIGNALED(status))
        _exit(WEXITSTATUS(status));
    const int number = WTERMSIG(status);
    prctl(PR_SET_DUMPABLE, 0); // the core of interest is the child's
    (void)std::signal(number, SIG_DFL);
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_UNBLOCK, &all, nullptr);
    (void)raise(number);
    _exit(128 + number);
}

// Returns in the child.
void split(const lock_file& lock, const held_signals& signals, const record& run) {
    const pid_t keeper = getpid();
    prctl(PR_SET_CHILD_SUBREAPER, 1); // whatever loses its parent becomes a child of this process
    const pid_t child = fork();
    if (child < 0)
        give_up("cannot start a process");
    if (child > 0) {
        const int status = wait_for(child, lock, signals.held);
        clear(run, whenever);
        lock_file::remove();
        end_like(status);
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != keeper)
        _exit(128 + SIGKILL);
    lock.keep(); // for without another program it has no mark
    (void)setenv(run_variable, run.run.c_str(), 1);
}

} // namespace

bool is_inside_a_run() {
    const char* const run = std::getenv(run_variable);
    return run != nullptr && *run != '\0' && read_record().run == run;
}

bool is_container() {
    const char* const variable = std::getenv("container");
    if ((variable != nullptr && *variable != '\0') || access("/.dockerenv", F_OK) == 0 ||
        access("/run/.containerenv", F_OK) == 0)
        return true;
    std::ifstream of_init("/proc/1/environ", std::ios::binary);
    for (std::string each; std::getline(of_init, each, '\0');)
        if (each.starts_with("container=") && !each.ends_with('='))
            return true;
    return false;
}

std::string work_in_place() try {
    const lock_file lock;
    const held_signals signals;
    if (const record left = read_record(); !left.run.empty())
        clear(left, lock.last_touch() + late_seconds);
    const std::vector<trace> all = list_traces();
    if (const std::string names = what_lies_there(all); !names.empty()) {
        lock_file::remove();
        return "namespaces are refused, and in the machine's own places lies what is somebody "
               "else's: " +
               names;
    }
    const record run = begin_run(all);
    try {
        lock.write(run.text());
        make_places();
        say("namespaces are refused: works in the machine's own places, and removes at the end "
            "what has come to /mnt, /var/tmp, /var/log and System V IPC");
        split(lock, signals, run);
    } catch (...) {
        clear(run, whenever);
        lock_file::remove();
        throw;
    }
    return {};
} catch (const std::exception& why) {
    return std::string("namespaces are refused, and ") + why.what();
}

} // namespace pelm
