#include "conf_agent.h"
#include "conf_plugin.h"

#include "support/bounded.h"
#include "support/faults.h"
#include "support/handle.h"
#include "support/peer.h"
#include "support/reports.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <pwd.h>
#include <regex>
#include <sys/socket.h>

namespace fs = std::filesystem;

namespace {

constexpr const char* path = "/var/tmp/pelmd.agent.socket";
constexpr const char* profile = "/mnt/squash/local/etc/pelmd/pelmd.conf";
const std::string connected = "<15>[DEBUG] Agent connect to agent sock addr success.\n";
const std::string disconnected = "<15>[DEBUG] Agent disconnect to server.\n";

// What went to syslog since the last call, with just "X" for the error "X failed".
std::string said() {
    static const std::regex error(R"(<11>\[ERROR\] (.*) failed(.*)\.\n)");
    std::string all;
    for (const std::string& line : captured_syslog())
        all += (all.empty() ? "" : "; ") + std::regex_replace(line, error, "$1$2");
    return all;
}

class AgentSocket : public testing::Test {
protected:
    AgentSocket() { conf::copy_into(g_conf_agent_socket, path); }
    ~AgentSocket() override {
        fs::remove(profile);
        fs::remove(path);
    }
    const descriptor_watch watch_;
};

class AgentRequest : public testing::Test {
protected:
    ~AgentRequest() override { conf_buffer_destroy(buffer_); }
    std::string content() const { return {buffer_->buf, static_cast<std::size_t>(buffer_->used)}; }
    conf_buffer_t* buffer_ = conf_buffer_create(1);
};

} // namespace

// With the lowest descriptor of all.
TEST_F(AgentSocket, CarriesBytesBetweenAgentAndDaemon) {
    const conf::unique_fd standard_input{dup(0)};
    close(0);
    EXPECT_EQ(conf_agent_service_enable(), 0);
    EXPECT_TRUE(accept(0, nullptr, nullptr) == -1 && errno == EAGAIN);
    const int agent = conf_agent_init();
    EXPECT_EQ(fcntl(agent, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_TRUE(fcntl(agent, F_GETFD) == FD_CLOEXEC && fcntl(0, F_GETFD) == FD_CLOEXEC);
    const conf::unique_fd daemon{accept(0, nullptr, nullptr)};
    EXPECT_EQ(write(daemon.get(), "hello", 5), 5);
    EXPECT_EQ(read_exactly(agent, 5), "hello");
    conf_agent_exit(agent);
    conf_agent_service_disable(0);
    EXPECT_TRUE(fcntl(0, F_GETFD) == -1 && !fs::exists(path));
    conf_agent_exit(dup2(standard_input.get(), 0));
    EXPECT_EQ(fcntl(0, F_GETFD), -1);
    dup2(standard_input.get(), 0);
    EXPECT_TRUE(said().ends_with(connected + "; " + disconnected + "; " + disconnected));
}

TEST_F(AgentSocket, FollowsTheProfileOnTheAgentsSideOnly) {
    std::ofstream(profile) << R"({"working-dir": "/var/tmp/elsewhere"})";
    const conf::unique_fd service{conf_agent_service_enable()};
    EXPECT_TRUE(fs::is_socket(path));
    EXPECT_EQ(conf_agent_init(), -1);
    EXPECT_STREQ(g_conf_agent_socket, "/var/tmp/elsewhere/pelmd.agent.socket");
}

TEST_F(AgentSocket, SaysWhyTheSystemRefuses) {
    const auto agent = conf_agent_init;
    const auto service = conf_agent_service_enable;
    const std::tuple<int (*)(), call, const char*, bool> failures[] = {
        {agent, call::socket, "Create socket(Input/output error)", false},
        {agent, call::connect, "Connect to agent sock addr(Input/output error)", false},
        {service, call::socket, "Create agent socket(Input/output error)", false},
        {service, call::bind, "Bind agent socket(Input/output error)", false},
        {service, call::listen, "Listen agent socket(Input/output error)", true},
        {service, call::fcntl, "Set agent service socket to nonblock", true}};
    for (const auto& [run, which, words, leaves_file] : failures) {
        const fault one(which, EIO);
        EXPECT_EQ(run(), -1);
        EXPECT_TRUE(said().ends_with(words)) << words;
        EXPECT_EQ(fs::exists(path), leaves_file);
        conf_agent_service_disable(-1);
        EXPECT_FALSE(fs::exists(path));
    }
    conf_agent_exit(-1);
    EXPECT_EQ(said(), disconnected);
}

TEST_F(AgentRequest, IsOneFrameBehindTheOther) {
    const std::string root = "<rpc xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\" xmlns:";
    const std::string own = root + "pelmd=\"com:vantrel:netconf:private:zerin:device:pelmd\" ";
    const std::string session =
        text("message-id=\"-2\"><pelmd:create-session><pelmd:username>%s</pelmd:username>"
             "<pelmd:agent-ppid>%d</pelmd:agent-ppid></pelmd:create-session></rpc>",
             getpwuid(getuid())->pw_name, getppid());
    const std::string subscription =
        root + "ntf=\"urn:ietf:params:xml:ns:netconf:notification:1.0\" "
               "message-id=\"subscribeNotification_1\"><ntf:create-subscription/></rpc>";
    EXPECT_EQ(conf_agent_build_session(&buffer_, -2), 0);
    EXPECT_EQ(conf_agent_build_notify_rpc(&buffer_, 7), 0);
    EXPECT_EQ(conf_agent_build_capability(&buffer_, 70000), 0);
    EXPECT_EQ(content(), frame_of(own + session, 0xFFFE) + frame_of(subscription, 7) +
                             frame_of(own + "message-id=\"70000\"><pelmd:get-capability/></rpc>",
                                      70000 - 65536));
}

TEST_F(AgentRequest, ReportsTheStepThatMemoryDidNotSufficeForAndLeavesTheBuffer) {
    std::string reports;
    fail_each(call::xml, ENOMEM, [&](const fault& one) {
        const std::string before = content();
        const bool built = conf_agent_build_session(&buffer_, 1) == 0;
        EXPECT_TRUE(built != one.hit() && built != (content() == before));
        if (const std::string report = "\n" + said(); !built && !reports.ends_with(report))
            reports += report;
    });
    EXPECT_EQ(reports, R"(
Create root node <rpc>; Create root node <rpc>
Create namespace <urn:ietf:params:xml:ns:netconf:base:1.0>; Create root node <rpc>
Create attribution <message-id>; Create root node <rpc>
Create namepsace <com:vantrel:netconf:private:zerin:device:pelmd>; Create root node <rpc>
Create child node <create-session>; Create root node <rpc>
Create child node <username>
Create child node <agent-ppid>
Create xml buffer; Dump xml to message for <create-session>
Dump xml to message for <create-session>)");
    EXPECT_EQ(conf_agent_build_notify_rpc(nullptr, 1), -1);
    EXPECT_EQ(said(), "Dump xml to message for <create-subscription>");
    const fault unknown(call::getpwuid, 0);
    EXPECT_EQ(conf_agent_build_session(&buffer_, 1), -1);
    EXPECT_EQ(said(), "Get login user information(Success)");
}

TEST_F(AgentRequest, TakesItsHeaderBackWhenTheBodyDoesNotFit) {
    std::string filling(static_cast<std::size_t>(buffer_->total - 13), '.');
    conf_buffer_append(&buffer_, filling.data(), static_cast<int>(filling.size()));
    const fault no_memory(call::mremap, ENOMEM);
    EXPECT_EQ(conf_agent_build_capability(&buffer_, 1), -1);
    EXPECT_EQ(content(), filling);
    EXPECT_TRUE(said().ends_with("Expand buffer; Append message body to outbound buffer; "
                                 "Dump xml to message for <get-capability>"));
}
