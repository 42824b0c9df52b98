#include "support/profile.h"

#include "conf_api.h"
#include "conf_debug.h"
#include "conf_plugin.h"
#include "support/faults.h"
#include "support/handle.h"
#include "support/reports.h"
#include "support/socket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/socket.h>

namespace fs = std::filesystem;
using testing::ElementsAre;

namespace {

[[maybe_unused]] const int log_is_on = econf_plugin_config_debug(DBG_ALL, 1);

std::string profile_of(const std::string& directory) {
    return R"({"working-dir":")" + directory + "\"}";
}

int load(const std::string& profile, char** directory = nullptr) {
    std::ofstream(conf::profile_path) << profile;
    return conf_load_config(directory);
}

void expect_sockets_in(const std::string& directory) {
    EXPECT_EQ(g_conf_agent_socket, directory + "/pelmd.agent.socket");
    EXPECT_EQ(g_conf_plugin_socket, directory + "/pelmd.plugin.socket");
    EXPECT_EQ(g_conf_notifier_socket, directory + "/pelmd.notifier.socket");
}

struct endpoint {
    int (*enable)();
    void (*disable)(int);
    const char* path;
    int type;
};
constexpr endpoint service = {conf_plugin_service_enable, conf_plugin_service_disable,
                              g_conf_plugin_socket, SOCK_STREAM};
constexpr endpoint notifier = {conf_plugin_notifier_enable, conf_plugin_notifier_disable,
                               g_conf_notifier_socket, SOCK_DGRAM};

} // namespace

TEST(Profile, LeavesAllAsItWasWhenItFails) {
    const std::string valid = profile_of("/x"), longer(86, 'd'), longest(300, 'd');
    constexpr call none = call::semop;
    const std::tuple<call, std::string, std::string> cases[] = {
        {call::open, valid,
         text("Open default-pelmd-profile(%s) failed(Broken pipe).", conf::profile_path)},
        {call::fstat, valid, "Pelmd's default-pelmd-profile is invalid."},
        {call::mmap, valid, "Mapping default-pelmd-profile to memory failed(Broken pipe)."},
        {call::strdup, valid, "Copy the working-dir(/x) failed(Broken pipe)."},
        {none, "", "Pelmd's default-pelmd-profile is invalid."},
        {none, "{\"a\":1,\n}", "Json parse error(})."},
        {none, std::string(4096, 'x'), "Json parse error(" + std::string(236, 'x') + ")."},
        {none, profile_of(longer),
         "The working-dir(" + longer + ") is too long for a socket address."},
        {none, profile_of(longest),
         "The working-dir(" + longest.substr(0, 200) + ") is too long for a socket address."}};
    const descriptor_watch watch;
    char callers[] = "the caller's";
    char* directory = callers;
    for (const auto& [failing, profile, report] : cases) {
        const fault one(failing, EPIPE);
        EXPECT_EQ(load(profile, &directory), -1);
        EXPECT_THAT(plugin_log(), ElementsAre("ERROR - " + report));
        expect_sockets_in("/var/tmp");
        EXPECT_EQ(directory, callers);
    }
}

TEST(Profile, NamesTheDirectoryOfTheSockets) {
    const std::string longest(85, 'd'), valid = profile_of("/p");
    const std::pair<std::string, std::string> cases[] = {
        {R"({"b":1,"working-dir":"/tmp/a","working-dir":7,"working-dir":"/tmp/b"})", "/tmp/b"},
        {R"({"working-dir":7,"Working-dir":"/a","a":{"working-dir":"/a"}})", "/old"},
        {R"(["working-dir"])", "/old"},
        {profile_of(R"(\/tmp\u002Fa/)"), "/tmp/a/"},
        {profile_of(longest), longest},
        {profile_of(""), ""},
        // Just a page, and nothing behind it.
        {std::string(4096 - valid.size(), ' ') + valid, "/p"}};
    const descriptor_watch watch;
    for (const auto& [profile, expected] : cases) {
        EXPECT_EQ(load(profile_of("/old")), 0);
        conf::unique_string directory{strdup("/old")};
        EXPECT_EQ(load(profile, directory.out()), 0);
        EXPECT_EQ(directory.get(), expected);
        expect_sockets_in(expected);
    }
    std::ifstream maps("/proc/self/maps");
    EXPECT_EQ(std::string(std::istreambuf_iterator(maps), {}).find("pelmd.conf"),
              std::string::npos);
    EXPECT_EQ(load(profile_of("/var/tmp")), 0);
    EXPECT_THAT(plugin_log(), ElementsAre());
}

TEST(Endpoint, IsForItsGroupWhateverTheMask) {
    close(0); // which is a descriptor like any other
    const descriptor_watch watch;
    for (const endpoint& each : {service, notifier})
        for (const mode_t mask : {0000u, 0777u}) {
            std::ofstream(each.path) << "stale";
            umask(mask);
            const int sock = each.enable();
            EXPECT_EQ(sock, 0);
            EXPECT_EQ(umask(022), mask);
            struct stat file;
            EXPECT_EQ(stat(each.path, &file), 0);
            EXPECT_EQ(file.st_mode, S_IFSOCK | 0660);
            EXPECT_EQ(fcntl(sock, F_GETFD), FD_CLOEXEC);
            EXPECT_EQ(fcntl(sock, F_GETFL), O_RDWR | O_NONBLOCK);
            int bytes = 0;
            socklen_t size = sizeof bytes;
            EXPECT_EQ(getsockopt(sock, SOL_SOCKET, SO_RCVBUF, &bytes, &size), 0);
            EXPECT_EQ(bytes == 2 * 5120, each.type == SOCK_DGRAM); // the kernel doubles it
            std::vector<conf::unique_fd> clients;
            do
                clients.emplace_back(socket(AF_UNIX, each.type | SOCK_NONBLOCK, 0));
            while (conf::connect_path(clients.back().get(), each.path) && clients.size() < 12);
            // A backlog of 8 admits one more, and the next is refused.
            EXPECT_EQ(clients.size(), each.type == SOCK_DGRAM ? 12u : 10u);
            each.disable(sock);
            EXPECT_FALSE(fs::exists(each.path));
        }
}

TEST(Endpoint, IsNotLeftHalfMade) {
    constexpr std::tuple<const endpoint*, call, int, const char*> cases[] = {
        {&service, call::socket, 0, "Create conf-plugin socket failed(Broken pipe)."},
        {&service, call::bind, 0, "Bind conf-plugin socket failed(Broken pipe)."},
        {&service, call::listen, 0, "Listen conf-plugin socket failed(Broken pipe)."},
        {&service, call::fcntl, 0, "Set plugin service socket to nonblock failed."},
        {&service, call::fcntl, 1, "Set plugin service socket to nonblock failed."},
        {&notifier, call::socket, 0, "Create notifier socket failed(Broken pipe)."},
        {&notifier, call::bind, 0, "Bind notifier socket failed(Broken pipe)."},
        {&notifier, call::setsockopt, 0, "Set socket receive buffer option failed(Broken pipe)."},
        {&notifier, call::fcntl, 0, "Set notifier socket to nonblock failed."}};
    const descriptor_watch watch;
    umask(027);
    for (const auto& [of, failing, skip, report] : cases) {
        const fault one(failing, EPIPE, skip);
        EXPECT_EQ(of->enable(), -1);
        EXPECT_EQ(umask(027), 027u);
        EXPECT_EQ(fs::exists(of->path), failing != call::socket && failing != call::bind);
        EXPECT_THAT(plugin_log(), ElementsAre(text("ERROR - %s", report)));
        of->disable(-1);
        EXPECT_FALSE(fs::exists(of->path));
    }
    EXPECT_EQ(captured_syslog().size(), 3u);
}
