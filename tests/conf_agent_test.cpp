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
#include <gmock/gmock.h>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

constexpr const char* path = "/var/tmp/pelmd.agent.socket";
constexpr const char* profile = "/mnt/squash/local/etc/pelmd/pelmd.conf";
constexpr const char* base_uri = "urn:ietf:params:xml:ns:netconf:base:1.0";
constexpr const char* private_uri = "com:vantrel:netconf:private:zerin:device:pelmd";
constexpr const char* notification_uri = "urn:ietf:params:xml:ns:netconf:notification:1.0";

std::string error(const std::string& words) { return "<11>[ERROR] " + words + ".\n"; }

// What went to syslog since the last call.
std::string said() {
    std::string all;
    for (const std::string& line : captured_syslog())
        all += line;
    return all;
}

class AgentSocket : public testing::Test {
protected:
    AgentSocket() { conf::copy_into(g_conf_agent_socket, path); }
    ~AgentSocket() override { fs::remove(profile); }
    const descriptor_watch watch_;
};

class AgentRequest : public testing::Test {
protected:
    ~AgentRequest() override { conf_buffer_destroy(buffer_); }
    std::string content() const { return {buffer_->buf, static_cast<std::size_t>(buffer_->used)}; }
    conf_buffer_t* buffer_ = conf_buffer_create(1);
};

} // namespace

// With the lowest descriptor, and with a path that is cut.
TEST_F(AgentSocket, CarriesBytesBetweenAgentAndDaemon) {
    const std::string full = "/var/tmp/" + std::string(150, 'a');
    const std::string cut = full.substr(0, 107);
    std::ofstream(cut) << "left by an earlier run";
    conf::copy_into(g_conf_agent_socket, full.c_str());
    const conf::unique_fd standard_input{dup(0)};
    close(0);
    const mode_t mask = umask(0);
    EXPECT_EQ(conf_agent_service_enable(), 0);
    EXPECT_EQ(umask(mask), 0u);
    EXPECT_EQ(fs::status(cut).permissions(), fs::perms{0660});
    EXPECT_TRUE(accept(0, nullptr, nullptr) == -1 && errno == EAGAIN);
    const int agent = conf_agent_init();
    EXPECT_EQ(fcntl(agent, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_TRUE(fcntl(agent, F_GETFD) == FD_CLOEXEC && fcntl(0, F_GETFD) == FD_CLOEXEC);
    const conf::unique_fd daemon{accept(0, nullptr, nullptr)};
    write_all(daemon.get(), "hello");
    EXPECT_EQ(read_exactly(agent, 5), "hello");
    conf_agent_exit(agent);
    conf_agent_service_disable(0);
    EXPECT_TRUE(fcntl(0, F_GETFD) == -1 && !fs::exists(cut));
    conf_agent_exit(dup2(standard_input.get(), 0));
    EXPECT_EQ(fcntl(0, F_GETFD), -1);
    dup2(standard_input.get(), 0);
    const std::string disconnected = "<15>[DEBUG] Agent disconnect to server.\n";
    EXPECT_TRUE(said().ends_with("<15>[DEBUG] Agent connect to agent sock addr success.\n" +
                                 disconnected + disconnected));
}

TEST_F(AgentSocket, FollowsTheProfileOnTheAgentsSideOnly) {
    std::ofstream(profile) << R"({"working-dir": "/var/tmp/elsewhere"})";
    const conf::unique_fd service{conf_agent_service_enable()};
    EXPECT_TRUE(fs::is_socket(path));
    EXPECT_EQ(conf_agent_init(), -1);
    EXPECT_STREQ(g_conf_agent_socket, "/var/tmp/elsewhere/pelmd.agent.socket");
    EXPECT_TRUE(
        said().ends_with(error("Connect to agent sock addr failed(No such file or directory)")));
}

// In a user namespace the group cannot be given to the file; as root of the machine it can.
TEST_F(AgentSocket, BelongsToSudoWhereThereIsSuchAGroup) {
    const group* sudo = getgrnam("sudo");
    const gid_t wanted = sudo != nullptr ? sudo->gr_gid : 0;
    const int service = conf_agent_service_enable();
    struct stat status {};
    EXPECT_TRUE(service >= 0 && stat(path, &status) == 0);
    EXPECT_EQ(said(), status.st_gid == wanted
                          ? ""
                          : "<12>[WARN] Fail to change group into sudo for agent sock path\n");
    conf_agent_service_disable(service);
    const fault no_group(call::getgrnam, 0);
    conf_agent_service_disable(conf_agent_service_enable());
    EXPECT_EQ(said(), "");
}

TEST_F(AgentSocket, SaysWhyTheSystemRefuses) {
    const auto agent = conf_agent_init;
    const auto service = conf_agent_service_enable;
    const std::tuple<int (*)(), call, const char*, bool> failures[] = {
        {agent, call::socket, "Create socket failed(Input/output error)", false},
        {agent, call::connect, "Connect to agent sock addr failed(Input/output error)", false},
        {service, call::socket, "Create agent socket failed(Input/output error)", false},
        {service, call::bind, "Bind agent socket failed(Input/output error)", false},
        {service, call::listen, "Listen agent socket failed(Input/output error)", true},
        {service, call::fcntl, "Set agent service socket to nonblock failed", true}};
    const mode_t mask = umask(022);
    for (const auto& [run, which, words, leaves_file] : failures) {
        const fault one(which, EIO);
        EXPECT_EQ(run(), -1);
        EXPECT_EQ(captured_syslog().back(), error(words));
        EXPECT_EQ(umask(022), 022u);
        EXPECT_EQ(fs::exists(path), leaves_file);
        conf_agent_service_disable(-1);
        EXPECT_FALSE(fs::exists(path));
    }
    umask(mask);
    conf_agent_exit(-1);
    EXPECT_EQ(said(), "<15>[DEBUG] Agent disconnect to server.\n");
}

TEST_F(AgentRequest, IsOneFrameBehindTheOther) {
    const std::string session = text(
        "create-session><pelmd:username>%s</pelmd:username><pelmd:agent-ppid>%d</pelmd:agent-ppid>"
        "</pelmd:create-session></rpc>",
        getpwuid(getuid())->pw_name, getppid());
    const std::string subscription =
        text("<rpc xmlns=\"%s\" xmlns:ntf=\"%s\" message-id=\"subscribeNotification_1\">"
             "<ntf:create-subscription/></rpc>",
             base_uri, notification_uri);
    std::string expected;
    for (const int seq : {7, 70000, -2}) {
        const auto cut = static_cast<std::uint16_t>(seq);
        const std::string own =
            text("<rpc xmlns=\"%s\" xmlns:pelmd=\"%s\" message-id=\"%d\"><pelmd:", base_uri,
                 private_uri, seq);
        EXPECT_EQ(conf_agent_build_session(&buffer_, seq), 0);
        EXPECT_EQ(conf_agent_build_notify_rpc(&buffer_, seq), 0);
        EXPECT_EQ(conf_agent_build_capability(&buffer_, seq), 0);
        expected += frame_of(own + session, cut) + frame_of(subscription, cut) +
                    frame_of(own + "get-capability/></rpc>", cut);
    }
    EXPECT_EQ(content(), expected);
    EXPECT_EQ(said(), "");
}

TEST_F(AgentRequest, ReportsTheStepThatMemoryDidNotSufficeForAndLeavesTheBuffer) {
    const std::string root = error("Create root node <rpc> failed");
    const std::string base = error(text("Create namespace <%s> failed", base_uri));
    const std::string id = error("Create attribution <message-id> failed");
    const std::string own = error(text("Create namepsace <%s> failed", private_uri));
    const std::string no_buffer = error("Create xml buffer failed");
    const std::string session = error("Dump xml to message for <create-session> failed");
    const std::string notify = error("Dump xml to message for <create-subscription> failed");
    const std::pair<int (*)(conf_buffer_t**, int), std::vector<std::string>> requests[] = {
        {conf_agent_build_session,
         {root + root, base + root, id + root, own + root,
          error("Create child node <create-session> failed") + root,
          error("Create child node <username> failed"),
          error("Create child node <agent-ppid> failed"), no_buffer + session, session}},
        {conf_agent_build_notify_rpc,
         {root, base, id, error(text("[RE]Create namepsace <%s> failed", notification_uri)),
          error("Create child node failed"), no_buffer + notify, notify}}};
    for (const auto& request : requests) {
        std::vector<std::string> reports;
        fail_each(call::xml, ENOMEM, [&](const fault& one) {
            const std::string before = content();
            const bool built = request.first(&buffer_, 1) == 0;
            EXPECT_TRUE(built != one.hit() && built != (content() == before));
            if (const std::string report = said();
                !built && (reports.empty() || reports.back() != report))
                reports.push_back(report);
        });
        EXPECT_EQ(reports, request.second);
        EXPECT_EQ(request.first(nullptr, 1), -1);
        EXPECT_EQ(said(), request.second.back());
    }
    const fault unknown(call::getpwuid, 0);
    EXPECT_EQ(conf_agent_build_session(&buffer_, 1), -1);
    EXPECT_EQ(said(), error("Get login user information failed(Success)"));
}

TEST_F(AgentRequest, TakesItsHeaderBackWhenTheBodyDoesNotFit) {
    const std::string dump = error("Dump xml to message for <get-capability> failed");
    for (const auto& [room, words] : {std::pair{11, "Append message header to buffer failed"},
                                      {12, "Append message body to outbound buffer failed"}}) {
        std::string filling(static_cast<std::size_t>(buffer_->total - 1 - room), '.');
        conf_buffer_flush(buffer_);
        conf_buffer_append(&buffer_, filling.data(), static_cast<int>(filling.size()));
        const fault no_memory(call::mremap, ENOMEM);
        EXPECT_EQ(conf_agent_build_capability(&buffer_, 1), -1);
        EXPECT_EQ(content(), filling);
        EXPECT_TRUE(said().ends_with(error("Expand buffer failed") + error(words) + dump));
    }
}
