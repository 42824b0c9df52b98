#include "doctor.h"

#include "clients.h"
#include "describe_process.h"
#include "journal/escaped.h"
#include "model/owners.h"
#include "profile.h"
#include "script/plugin_log.h"
#include "wire/listener.h"

#include <cerrno>
#include <conf_plugin.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <memory>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace pelmsim {
namespace {

constexpr off_t large_log = off_t{16} * 1024 * 1024;
constexpr mode_t socket_mode = 0660;

void found(const char* thing, const std::string& state) {
    std::printf("%-16s %s\n", thing, escaped(state).c_str()); // which may name what anybody wrote
}

// What is wrong, collected while the rest is printed.
class findings {
public:
    void wrong(const std::string& what) { wrong_.push_back(what); }

    int conclude() const {
        std::puts(wrong_.empty() ? "Nothing is wrong." : "What is wrong:");
        for (const std::string& each : wrong_)
            std::printf("  - %s\n", escaped(each).c_str());
        return wrong_.empty() ? 0 : 1;
    }

private:
    std::vector<std::string> wrong_;
};

std::string describe_file(const struct stat& file) {
    const passwd* const owner = getpwuid(file.st_uid);
    const std::string user = owner == nullptr ? std::to_string(file.st_uid) : owner->pw_name;
    const group* const its_group = getgrgid(file.st_gid);
    char mode[8];
    (void)std::snprintf(mode, sizeof mode, "%04o", file.st_mode & 07777U);
    return std::string("mode ") + mode + ", " + user + ":" +
           (its_group == nullptr ? std::to_string(file.st_gid) : its_group->gr_name);
}

void examine_profile(findings& all) {
    char* directory = nullptr;
    const bool present = access(profile_path, F_OK) == 0;
    const bool valid = conf_load_config(&directory) == 0;
    const std::unique_ptr<char, void (*)(void*)> owned(directory, std::free);
    if (!present)
        return found("profile", std::string("none at ") + profile_path +
                                    ": the sockets are at their usual places");
    if (!valid) {
        all.wrong(std::string(profile_path) + " is not a valid profile: it must be a JSON object, "
                                              "and its \"working-dir\" not too long");
        return found("profile", std::string(profile_path) + ", not valid");
    }
    found("profile",
          profile_path + (directory == nullptr ? std::string(", names no working directory")
                                               : ", the sockets are in " + std::string(directory)));
}

// The name of who serves the socket, or empty.
std::string server_at(const char* path, int type) {
    if (type == SOCK_STREAM) {
        const pid_t pid = listening_process(path);
        if (pid < 0)
            return "somebody listens and does not accept";
        return pid == 0 ? "" : "process " + describe_process(pid) + " listens";
    }
    const unique_fd probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const bool served =
        connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    return served ? "somebody receives" : "";
}

void examine_socket(findings& all, const char* thing, const char* path, int type) {
    struct stat file {};
    if (stat(path, &file) != 0) {
        all.wrong(std::string(path) + " cannot be found (" + std::strerror(errno) +
                  "): the daemon does not run, or has another working directory");
        return found(thing, std::string(path) + ", missing");
    }
    errno = 0;
    const std::string server = server_at(path, type);
    const int error = errno;
    found(thing, std::string(path) + ", " + describe_file(file) + ", " +
                     (server.empty() ? "nobody is there" : server));
    if (!S_ISSOCK(file.st_mode))
        all.wrong(std::string(path) + " is no socket");
    else if (server.empty() && error == EACCES)
        all.wrong(std::string("this user may not connect to ") + path +
                  ": see its owner and group");
    else if (server.empty())
        all.wrong(std::string(path) + " was left behind by a daemon that runs no more");
    if ((file.st_mode & 07777U) != socket_mode)
        all.wrong(std::string(path) + " should have mode 0660");
}

void examine_table(findings& all) {
    const client_table table = read_client_table();
    if (!table.missing.empty())
        return found("client table", "none: " + table.missing);
    found("client table",
          std::to_string(table.count) + " slots in " + std::to_string(table.segment.shm_segsz) +
              " bytes, created by process " + describe_process(table.segment.shm_cpid) + ", " +
              std::to_string(table.segment.shm_nattch) + " attached, its lock is " + table.lock);
    if (table.lock_is_bad)
        all.wrong("the lock of the client table is " + table.lock +
                  ": every call on the table fails or waits");
    if (table.count < 1 || table.slots.size() != static_cast<std::size_t>(table.count))
        all.wrong("the client table says it has " + std::to_string(table.count) +
                  " slots, which its segment does not hold");
}

void examine_log(findings& all) {
    struct stat file {};
    if (stat(plugin_log_file, &file) != 0)
        return found("plugin log", std::string(plugin_log_file) + ", not there yet");
    found("plugin log", std::string(plugin_log_file) + ", " + std::to_string(file.st_size) +
                            " bytes, " + describe_file(file));
    if (file.st_size > large_log)
        all.wrong(std::string(plugin_log_file) + " has grown large: some plugin logs too much");
    if (access(plugin_log_file, W_OK) != 0)
        all.wrong(std::string("plugins that run as this user cannot write ") + plugin_log_file);
}

} // namespace

int examine_machine() {
    findings all;
    examine_profile(all);
    examine_socket(all, "plugin socket", g_conf_plugin_socket, SOCK_STREAM);
    examine_socket(all, "agent socket", g_conf_agent_socket, SOCK_STREAM);
    examine_socket(all, "notifier socket", g_conf_notifier_socket, SOCK_DGRAM);
    examine_table(all);
    examine_log(all);
    return all.conclude();
}

} // namespace pelmsim
