#include "support/profile.h"

#include "support/plugin.h"
#include "support/socket.h"

using Profile = PluginTest;
using Endpoint = PluginTest;

namespace {

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

constexpr struct endpoint {
    int (*enable)();
    void (*disable)(int);
    const char* path;
    int type;
} endpoints[] = {
    {conf_plugin_service_enable, conf_plugin_service_disable, g_conf_plugin_socket, SOCK_STREAM},
    {conf_plugin_notifier_enable, conf_plugin_notifier_disable, g_conf_notifier_socket, SOCK_DGRAM},
};

// How many connections an endpoint holds that nobody accepts.
int waiting_on(const char* path) {
    std::vector<conf::unique_fd> plugins;
    do
        plugins.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    while (conf::connect_path(plugins.back().get(), path));
    return static_cast<int>(plugins.size()) - 1;
}

} // namespace

TEST_F(Profile, LeavesAllAsItWasWhenItFails) {
    const std::string longer(86, 'd');
    const std::pair<std::string, std::string> cases[] = {
        {"", "Pelmd's default-pelmd-profile is invalid."},
        {"{\"a\":1,\n}", "Json parse error(})."},
        {std::string(4096, 'x'), "Json parse error(" + std::string(236, 'x') + ")."},
        {profile_of(longer),
         text("The working-dir(%s) is too long for a socket address.", longer.c_str())}};
    char callers[] = "the caller's";
    char* directory = callers;
    for (const auto& [profile, report] : traced(cases)) {
        EXPECT_EQ(load(profile, &directory), -1);
        EXPECT_EQ(log(), report);
        expect_sockets_in("/var/tmp");
        EXPECT_EQ(directory, callers);
    }
}

TEST_F(Profile, NamesTheDirectoryOfTheSockets) {
    const std::string valid = profile_of("/p");
    EXPECT_EQ(load(profile_of("/old")), 0);
    char* directory = strdup("/old");
    EXPECT_EQ(load(std::string(4096 - valid.size(), ' ') + valid, &directory), 0); // just a page
    EXPECT_STREQ(conf::unique_string{directory}.get(), "/p");
    expect_sockets_in("/p");
    std::ifstream maps("/proc/self/maps");
    const std::string mapped(std::istreambuf_iterator<char>(maps), {});
    EXPECT_EQ(mapped.find("pelmd.conf"), std::string::npos);
    EXPECT_EQ(load(profile_of("/var/tmp")), 0);
    EXPECT_EQ(log(), "");
}

TEST_F(Endpoint, IsForItsGroupWhateverTheMask) {
    close(0); // which is a descriptor like any other
    for (const endpoint& each : traced(endpoints))
        for (const mode_t mask : {0000u, 0777u}) {
            std::ofstream(each.path) << "stale";
            umask(mask);
            EXPECT_EQ(each.enable(), 0);
            EXPECT_EQ(umask(022), mask);
            EXPECT_EQ(fs::status(each.path).permissions(), fs::perms{0660});
            EXPECT_EQ(fcntl(0, F_GETFL), O_RDWR | O_NONBLOCK);
            int bytes = 0;
            socklen_t size = sizeof bytes;
            EXPECT_EQ(getsockopt(0, SOL_SOCKET, SO_RCVBUF, &bytes, &size), 0);
            EXPECT_EQ(bytes == 2 * 5120, each.type == SOCK_DGRAM); // the kernel doubles it
            EXPECT_EQ(waiting_on(each.path), each.type == SOCK_STREAM ? 9 : 0); // one in advance
            each.disable(0);
            EXPECT_FALSE(fs::exists(each.path));
        }
    EXPECT_EQ(dup(1), 0); // as many as before
}
