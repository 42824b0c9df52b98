#include "conf_api.h"
#include "conf_debug.h"
#include "conf_plugin.h"

#include "support/faults.h"
#include "support/handle.h"
#include "support/reports.h"
#include "support/xml.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <map>
#include <poll.h>
#include <set>
#include <sys/socket.h>
#include <sys/wait.h>

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

char name[] = "alarm";
char data[] = "text";

// Holds the daemon's end.
class Notifying : public testing::Test {
protected:
    Notifying() {
        econf_plugin_config_debug(DBG_ALL, 1);
        (void)plugin_log();
    }
    ~Notifying() override { conf_plugin_notifier_disable(-1); }

    // The next datagram, or nothing when none comes in time.
    std::string received(int wait_ms = 0) const {
        pollfd ready{.fd = daemon_.get(), .events = POLLIN, .revents = 0};
        if (poll(&ready, 1, wait_ms) != 1)
            return {};
        char bytes[9000];
        return {bytes, static_cast<std::size_t>(recv(daemon_.get(), bytes, sizeof bytes, 0))};
    }

    conf::unique_fd daemon_{conf_plugin_notifier_enable()};
    conf::unique_node node_{conf::new_element("a")};
    const descriptor_watch watch_;
};

} // namespace

TEST_F(Notifying, SendsTheBareTextOfOneElement) {
    xmlNode* entry = conf::add_empty(node_.get(), "entry");
    xmlNewProp(entry, BAD_CAST "k", BAD_CAST "v");
    conf::add_text(entry, "b", "1 < 2");
    conf::add_empty(node_.get(), "sibling");
    EXPECT_EQ(econf_notify(name, entry), 0);
    EXPECT_EQ(received(), "<entry k=\"v\"><b>1 &lt; 2</b></entry>");
    EXPECT_THAT(plugin_log(), IsEmpty());
}

TEST_F(Notifying, SendsTextWithItsZeroByte) {
    char empty[] = "";
    EXPECT_EQ(conf_notify(name, data), 0);
    EXPECT_EQ(received(), "text\0"s);
    EXPECT_EQ(conf_notify_nonblock(name, empty), 0);
    EXPECT_EQ(received(), "\0"s);
    EXPECT_THAT(plugin_log(),
                ElementsAre("INFO - Sent notification to pelmd, length is 5",
                            "INFO - Sent notification to pelmd with non block mode, length is 1"));
}

TEST_F(Notifying, RefusesWhatIsMissing) {
    EXPECT_EQ(econf_notify(nullptr, node_.get()), -1);
    EXPECT_EQ(econf_notify(name, nullptr), -1);
    EXPECT_EQ(conf_notify(nullptr, data), -1);
    EXPECT_EQ(conf_notify_nonblock(name, nullptr), -1);
    const std::string name_at = text("%p", static_cast<void*>(name));
    EXPECT_THAT(plugin_log(),
                ElementsAre(text("ERROR - Error input parameter(name=(nil), node=%p).",
                                 static_cast<void*>(node_.get())),
                            "ERROR - Error input parameter(name=" + name_at + ", node=(nil)).",
                            text("ERROR - Error input parameter(list=(nil), node=%p).",
                                 static_cast<void*>(data)),
                            "ERROR - Error input parameter(list=" + name_at + ", node=(nil))."));
}

TEST_F(Notifying, SaysWhyTheSystemRefuses) {
    const auto sockets_run_out = [](auto send) {
        const fault none_left(call::socket, EMFILE);
        EXPECT_EQ(send(), -1);
    };
    const auto by_node = [&] { return econf_notify(name, node_.get()); };
    const auto by_text = [] { return conf_notify(name, data); };
    sockets_run_out(by_node);
    sockets_run_out(by_text);
    EXPECT_THAT(plugin_log(),
                ElementsAre("ERROR - Create notification socket failed(Too many open files).",
                            "ERROR - Create notifier socket failed(Too many open files)."));
    conf_plugin_notifier_disable(-1); // takes the file away, not the socket
    EXPECT_TRUE(by_node() == -1 && by_text() == -1 && conf_notify_nonblock(name, data) == -1);
    const char* refused =
        "ERROR - Send notification alarm failed failed(No such file or directory).";
    EXPECT_THAT(plugin_log(),
                ElementsAre(refused, "INFO - Sent notification to pelmd, length is -1", refused,
                            "INFO - Sent notification to pelmd with non block mode, length is -1",
                            refused));
}

TEST_F(Notifying, SendsNothingThatMemoryDidNotSufficeFor) {
    const std::string words(8000, 'x'); // libxml2 has to enlarge its buffer
    conf::add_text(node_.get(), "b", words.c_str());
    std::set<std::string> reports;
    fail_each(call::xml, ENOMEM, [&](const fault& one) {
        const bool sent = econf_notify(name, node_.get()) == 0;
        EXPECT_EQ(sent, !one.hit());
        EXPECT_EQ(received(), sent ? "<a><b>" + words + "</b></a>" : "");
        for (const std::string& line : plugin_log())
            reports.insert(line);
    });
    EXPECT_THAT(reports, ElementsAre("ERROR - Create xml buffer for cache rpc failed.",
                                     "ERROR - Dump data node failed.",
                                     "ERROR - get content from xmlbuf fail."));
}

TEST_F(Notifying, FailsAtOnceWhenTheQueueIsFullIfToldSo) {
    while (conf_notify_nonblock(name, data) == 0)
        ;
    EXPECT_EQ(plugin_log().back(),
              "ERROR - Send notification alarm failed failed(Resource temporarily unavailable).");
    EXPECT_EQ(received(), "text\0"s);
    EXPECT_EQ(conf_notify_nonblock(name, data), 0);
}

TEST_F(Notifying, LosesNothingWhenManyWaitForRoom) {
    constexpr int senders = 4;
    constexpr int rounds = 100;
    for (char id = 'a'; id < 'a' + senders; ++id) {
        if (fork() != 0)
            continue;
        int failures = 0;
        for (int i = 0; i < rounds; ++i) {
            std::string words = id + std::to_string(i);
            const conf::unique_node node{conf::new_element(words.c_str())};
            failures +=
                i % 2 == 0 ? conf_notify(name, words.data()) : econf_notify(name, node.get());
        }
        _exit(failures == 0 ? 0 : 1);
    }
    std::map<char, int> next;
    for (int i = 0; i < senders * rounds; ++i) {
        const std::string got = received(20000);
        const char id = got.at(got[0] == '<' ? 1 : 0);
        const std::string words = id + std::to_string(next[id]);
        EXPECT_EQ(got, next[id]++ % 2 == 0 ? words + '\0' : '<' + words + "/>");
    }
    for (int status = 0; wait(&status) > 0;)
        EXPECT_EQ(status, 0);
}
