// Sessions are held against docs/protocol.md in protocol_test.cpp.
#include "conf_agent.h"
#include "conf_plugin.h"

#include "support/bounded.h"
#include "support/test.h"

#include <grp.h>

// In a world of its own a process cannot give files to groups.
TEST(Agent, GivesItsSocketToSudoOrWarns) {
    const char* const path = "/var/tmp/pelmd.agent.socket";
    conf::copy_into(g_conf_agent_socket, path);
    const group* const sudo = getgrnam("sudo");
    const conf::unique_fd service{conf_agent_service_enable()};
    struct stat file {};
    EXPECT_EQ(stat(path, &file), 0);
    const bool is_given = sudo == nullptr || file.st_gid == sudo->gr_gid;
    const std::string warning = "<12>[WARN] Fail to change group into sudo for agent sock path\n";
    EXPECT_EQ(captured_syslog(), is_given ? std::vector<std::string>{} : std::vector{warning});
    fs::remove(path);
}
