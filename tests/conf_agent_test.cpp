#include "conf_agent.h"
#include "conf_plugin.h"

#include "support/bounded.h"
#include "support/test.h"

#include <grp.h>

namespace {

constexpr const char* path = "/var/tmp/pelmd.agent.socket";

class Agent : public testing::Test {
protected:
    Agent() { conf::copy_into(g_conf_agent_socket, path); }
    ~Agent() override {
        fs::remove(path);
        conf_buffer_destroy(requests_);
        (void)captured_syslog();
    }
    std::string requests() const {
        return {requests_->buf, static_cast<std::size_t>(requests_->used)};
    }
    const descriptor_watch watch_;
    conf_buffer_t* requests_ = conf_buffer_create(1);
};

} // namespace

// With the lowest descriptor of all.
TEST_F(Agent, ExchangesBytesWithTheDaemon) {
    const conf::unique_fd standard_input{dup(0)};
    close(0);
    EXPECT_EQ(conf_agent_service_enable(), 0);
    EXPECT_EQ(fcntl(0, F_GETFL), O_RDWR | O_NONBLOCK);
    const int agent = conf_agent_init();
    EXPECT_EQ(captured_syslog().back(), "<15>[DEBUG] Agent connect to agent sock addr success.\n");
    EXPECT_EQ(fcntl(agent, F_GETFL), O_RDWR);
    const conf::unique_fd daemon{accept(0, nullptr, nullptr)};
    EXPECT_EQ(write(daemon.get(), "hello", 5), 5);
    char bytes[6] = "";
    EXPECT_EQ(read(agent, bytes, sizeof bytes), 5);
    EXPECT_STREQ(bytes, "hello");
    conf_agent_exit(agent);
    EXPECT_THAT(captured_syslog(), ElementsAre("<15>[DEBUG] Agent disconnect to server.\n"));
    conf_agent_service_disable(0);
    EXPECT_EQ(fcntl(0, F_GETFD), -1);
    EXPECT_FALSE(fs::exists(path));
    conf_agent_exit(dup2(standard_input.get(), 0));
    EXPECT_EQ(fcntl(0, F_GETFD), -1);
    dup2(standard_input.get(), 0);
}

TEST_F(Agent, SaysThatThereIsNoRoomForAHeader) {
    std::string filling(static_cast<std::size_t>(requests_->total - 5), '.');
    conf_buffer_append(&requests_, filling.data(), static_cast<int>(filling.size()));
    const fault no_memory(call::mremap, ENOMEM);
    EXPECT_EQ(conf_agent_build_capability(&requests_, 1), -1);
    EXPECT_EQ(requests(), filling);
    EXPECT_THAT(captured_syslog(),
                testing::Contains("<11>[ERROR] Append message header to buffer failed.\n"));
}

// In a world of its own a process cannot give files to groups.
TEST_F(Agent, GivesItsSocketToSudoOrWarns) {
    const group* const sudo = getgrnam("sudo");
    const conf::unique_fd service{conf_agent_service_enable()};
    struct stat file {};
    EXPECT_EQ(stat(path, &file), 0);
    const bool is_given = sudo == nullptr || file.st_gid == sudo->gr_gid;
    const std::string warning = "<12>[WARN] Fail to change group into sudo for agent sock path\n";
    EXPECT_EQ(captured_syslog(), is_given ? std::vector<std::string>{} : std::vector{warning});
}
