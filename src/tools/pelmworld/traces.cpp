#include "traces.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace pelm {
namespace {

constexpr const char* profile_directory = "/mnt/squash/local/etc/pelmd/";

// Other directories in the three places are not looked into: they may hold anything.
constexpr const char* places[] = {"/mnt",
                                  "/mnt/squash",
                                  "/mnt/squash/local",
                                  "/mnt/squash/local/etc",
                                  "/mnt/squash/local/etc/pelmd",
                                  "/var/tmp",
                                  "/var/log"};

int number_in(const char* text) { return static_cast<int>(std::strtol(text, nullptr, 10)); }

void remove_segment(int id) {
    shmid_ds segment{};
    if (shmctl(id, IPC_STAT, &segment) == 0 && segment.shm_nattch == 0)
        (void)shmctl(id, IPC_RMID, nullptr);
}

// The kernel's tables: a heading, then a line for each object with its id in the second column.
constexpr struct {
    std::string_view kind;
    int column_of_change;
    void (*remove)(int id);
} tables[] = {{"shm", 13, remove_segment},
              {"sem", 9, [](int id) { (void)semctl(id, 0, IPC_RMID); }},
              {"msg", 13, [](int id) { (void)msgctl(id, IPC_RMID, nullptr); }}};

void add_file(std::vector<trace>& all, const fs::path& path) {
    struct stat file {};
    if (lstat(path.c_str(), &file) == 0)
        all.push_back({path, file.st_ctime});
}

void add_objects(std::vector<trace>& all, std::string_view kind, int column_of_change) {
    std::ifstream table("/proc/sysvipc/" + std::string(kind));
    std::string line;
    std::getline(table, line);
    while (std::getline(table, line)) {
        std::istringstream row(line);
        const std::vector<std::string> cells{std::istream_iterator<std::string>(row), {}};
        const auto column = static_cast<std::size_t>(column_of_change);
        if (cells.size() > column)
            all.push_back({std::string(kind) + " " + cells[1], std::stol(cells[column])});
    }
}

bool has_variable(const fs::path& process, const std::string& variable) {
    std::ifstream file(process / "environ", std::ios::binary);
    std::string each;
    while (std::getline(file, each, '\0'))
        if (each == variable)
            return true;
    return false;
}

bool kill_processes_with(const std::string& variable, const std::set<pid_t>& spared) {
    while (waitpid(-1, nullptr, WNOHANG) > 0)
        ; // an ended one would be found again
    const std::set<pid_t> children = children_of_this_process();
    bool are_any = false;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const pid_t pid = number_in(entry.path().filename().c_str()); // 0: no process
        const bool is_known = children.contains(pid) && !spared.contains(pid);
        if (pid <= 0 || pid == getpid() || !(is_known || has_variable(entry.path(), variable)))
            continue;
        are_any = true;
        (void)kill(pid, SIGKILL);
    }
    return are_any;
}

} // namespace

std::vector<trace> list_traces() {
    std::vector<trace> all;
    for (const char* place : places) {
        add_file(all, place);
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(place, error))
            add_file(all, entry.path());
    }
    for (const auto& table : tables)
        add_objects(all, table.kind, table.column_of_change);
    return all;
}

// The last change of what lies deeper is none of the directory itself.
bool has_changed_since(const trace& what, std::time_t time) {
    if (what.changed > time)
        return true;
    std::error_code error;
    if (!fs::is_directory(fs::symlink_status(what.name, error)))
        return false;
    for (const auto& entry : fs::recursive_directory_iterator(what.name, error)) {
        struct stat file {};
        if (lstat(entry.path().c_str(), &file) == 0 && file.st_ctime > time)
            return true;
    }
    return false;
}

void remove_trace(const std::string& name) {
    std::error_code error;
    if (name.starts_with('/'))
        (void)fs::remove_all(name, error);
    if (error)
        (void)std::fprintf(stderr, "%s: cannot remove %s: %s\n", program_invocation_short_name,
                           name.c_str(), error.message().c_str());
    for (const auto& table : tables)
        if (name.starts_with(table.kind))
            table.remove(number_in(name.c_str() + table.kind.size()));
}

void make_places() {
    for (const char* place : places)
        (void)fs::create_directories(place);
}

bool is_a_daemons(const std::string& name) {
    return name.starts_with(profile_directory) || name.starts_with("/var/tmp/pelmd.") ||
           name == "/var/log/conf_plugin.log";
}

bool is_listened_at(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const bool is_answered =
        connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
        errno == EAGAIN; // its queue is full
    close(probe);
    return is_answered;
}

std::set<pid_t> children_of_this_process() {
    std::ifstream numbers("/proc/thread-self/children"); // empty where the kernel does not say
    return {std::istream_iterator<pid_t>(numbers), {}};
}

bool end_processes_of(const std::string& variable, const std::set<pid_t>& spared) {
    bool were_any = false;
    while (kill_processes_with(variable, spared)) {
        were_any = true;
        (void)usleep(1000); // a process loses its variables in dying
    }
    return were_any;
}

} // namespace pelm
