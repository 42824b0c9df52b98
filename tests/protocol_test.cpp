// The examples of docs/protocol.md: a process that stands by itself says what they say, byte by byte.
#include "conf_agent.h"
#include "conf_api.h"
#include "conf_misc.h"
#include "conf_plugin.h"

#include "support/test.h"
#include "support/xml.h"

#include <arpa/inet.h>
#include <bit>
#include <poll.h>
#include <pwd.h>
#include <sys/shm.h>

namespace {

constexpr bool is_little_endian = std::endian::native == std::endian::little;

struct message {
    std::string from; // plugin, daemon, agent, notice or table
    std::string bytes;
};

// "2C 01" is two bytes, anything else stands for itself.
std::string bytes_in(const std::string& line) {
    static const std::regex hex("([0-9A-F]{2} )*[0-9A-F]{2}");
    if (!std::regex_match(line, hex))
        return line;
    std::string bytes;
    for (std::size_t at = 0; at < line.size(); at += 3)
        bytes += static_cast<char>(std::stoi(line.substr(at, 2), nullptr, 16));
    return bytes;
}

// What these send in the blocks marked "wire". A message begins where a line does, and goes on in those
// that are indented.
std::vector<message> examples(const std::set<std::string>& senders) {
    std::ifstream page(PROTOCOL_PAGE);
    std::vector<message> all;
    bool is_wire = false;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("```"))
            is_wire = line == "```wire";
        else if (is_wire && line.starts_with(' '))
            all.back().bytes += bytes_in(line.substr(7));
        else if (is_wire)
            all.push_back({line.substr(0, line.find(' ')), bytes_in(line.substr(7))});
    }
    std::erase_if(all, [&](const message& each) { return !senders.contains(each.from); });
    return all;
}

// The header's numbers, as this machine has them.
std::string native(std::string frame) {
    if (!is_little_endian)
        for (const auto& [begin, end] : {std::pair{0, 4}, {4, 8}, {8, 10}, {10, 12}})
            std::reverse(frame.begin() + begin, frame.begin() + end);
    return frame;
}

std::string read_bytes(int from, std::size_t count) {
    std::string bytes(count, '\0');
    const ssize_t got = recv(from, bytes.data(), count, MSG_WAITALL);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return bytes;
}

// ---- The plugin of the examples.

bool is_leaving = false;

xmlNode* element(const char* name, const char* text) {
    xmlNode* node = xmlNewNode(nullptr, BAD_CAST name);
    xmlNodeAddContent(node, BAD_CAST text);
    return node;
}

int port_changed(int /*session*/, int oper, int /*more*/, int /*priority*/, const char* path) {
    xmlNode* now = nullptr;
    xmlNode* before = nullptr;
    const int result = econf_plugin_pull(0, path, &now) + econf_plugin_pull(1, path, &before);
    xmlFreeNodeList(now);
    xmlFreeNodeList(before);
    if (oper == CONFIG_OP_ADD)
        return result;
    econf_plugin_error(EINVAL, "Too small.");
    return -1;
}

int port_state(int /*session*/, const char* /*path*/, const char* /*filter*/, xmlNode** status) {
    *status = element("up", "1");
    return 0;
}

int reset(int /*session*/, xmlNode* /*input*/, xmlNode** output) {
    xmlNode* position = nullptr;
    xmlNode* data = element("since", "5");
    xmlAddNextSibling(data, element("by", "me"));
    const int result = econf_plugin_locate(0, "/net/port[name=eth1]", &position) +
                       econf_plugin_push("/net/up", data) +
                       econf_plugin_config_deployment("/net/up", 0, data) +
                       econf_plugin_save_deployment();
    (void)econf_plugin_copy_running_to_deployment(1); // which is refused
    xmlFreeNodeList(position);
    xmlFreeNodeList(data);
    *output = element("was", "up");
    return result;
}

int be_the_plugin() {
    char operation[] = "/net/reset";
    econf_config_cb_info_t configs[] = {{"/net/port", 10, port_changed}, {}};
    econf_status_cb_info_t statuses[] = {{"/net/state", port_state}, {}};
    econf_operate_cb_info_t operations[] = {{operation, reset}, {}};
    econf_plugin_subpub_info_t info{configs, statuses, operations, [] { is_leaving = true; }};
    pollfd daemon{econf_plugin_init("net", &info), POLLIN, 0};
    if (daemon.fd < 0 || econf_plugin_activate(ACTIVATE_WITH_CFGR) < 0)
        return 1;
    do
        econf_plugin_run();
    while (!is_leaving && poll(&daemon, 1, -1) == 1 && daemon.revents == POLLIN);
    econf_plugin_deactivate();
    econf_plugin_close();
    return is_leaving ? 0 : 2;
}

} // namespace

TEST(Protocol, IsWhatAPluginSpeaks) {
    const conf::unique_fd service{conf_plugin_service_enable()};
    const pid_t plugin = fork();
    if (plugin == 0)
        _exit(be_the_plugin());
    pollfd waiting{service.get(), POLLIN, 0};
    ASSERT_EQ(poll(&waiting, 1, -1), 1);
    const conf::unique_fd connection{accept(service.get(), nullptr, nullptr)};
    for (const auto& [from, bytes] : examples({"daemon", "plugin"})) {
        if (from == "daemon") {
            (void)send(connection.get(), native(bytes).data(), bytes.size(), MSG_NOSIGNAL);
        } else {
            ASSERT_EQ(read_bytes(connection.get(), bytes.size()), native(bytes));
        }
    }
    EXPECT_EQ(read_bytes(connection.get(), 1), "");
    int status = 0;
    EXPECT_EQ(waitpid(plugin, &status, 0), plugin);
    EXPECT_EQ(status, 0);
    conf_plugin_service_disable(-1);
}

// Other users than the example's are logged in here.
TEST(Protocol, IsWhatAgentsAskIn) {
    conf_buffer_t* out = conf_buffer_create(0);
    EXPECT_EQ(conf_agent_build_session(&out, 7), 0);
    EXPECT_EQ(conf_agent_build_capability(&out, 70000), 0);
    EXPECT_EQ(conf_agent_build_notify_rpc(&out, 9), 0);
    std::string sent(out->buf, static_cast<std::size_t>(out->used));
    conf_buffer_destroy(out);
    const std::string user = std::string(">") + getpwuid(getuid())->pw_name + "<";
    const std::string parent = ">" + std::to_string(getppid()) + "<";
    sent.replace(sent.find(user), user.size(), ">admin<");
    sent.replace(sent.find(parent), parent.size(), ">812<");
    std::string expected;
    for (const message& each : examples({"agent"}))
        expected += native(each.bytes);
    const std::size_t next = sent.find(sent.substr(0, 4), 4);
    sent.replace(4, 4, bytes_of(static_cast<u32_t>(next - sizeof(msg_head_t))));
    EXPECT_EQ(sent, expected);
}

TEST(Protocol, IsWhatNotificationsAre) {
    const conf::unique_fd queue{conf_plugin_notifier_enable()};
    const conf::unique_node alarm{element("alarm", "")};
    xmlNewProp(alarm.get(), BAD_CAST "level", BAD_CAST "2");
    xmlNewTextChild(alarm.get(), nullptr, BAD_CAST "text", BAD_CAST "hot & loud");
    char name[] = "link";
    char text[] = "link up";
    EXPECT_EQ(econf_notify(name, alarm.get()) + conf_notify(name, text), 0);
    for (const message& expected : examples({"notice"}))
        EXPECT_EQ(read_bytes(queue.get(), 4096), expected.bytes);
    conf_plugin_notifier_disable(-1);
}

TEST(Protocol, IsWhereTheTableHasItsSlots) {
    const char* profile = "/mnt/squash/local/etc/pelmd/pelmd.conf";
    std::ofstream(profile) << "{}";
    ASSERT_EQ(conf_clishm_create(2), 0);
    conf_cli_info_t client{};
    client.sshd_pid = 812;
    client.cli_port = 50022;
    client.addr_buf[0] = inet_addr("192.0.2.7");
    EXPECT_EQ(conf_save_client_info(&client), 0);
    const std::string expected = examples({"table"}).front().bytes;
    const void* table = shmat(shmget(ftok(profile, 0), 0, 0), nullptr, SHM_RDONLY);
    const std::string bytes(static_cast<const char*>(table), expected.size());
    EXPECT_TRUE(!is_little_endian || bytes == expected) << bytes;
    EXPECT_EQ(shmdt(table), 0);
    conf_clishm_destroy();
}
