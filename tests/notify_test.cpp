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
#include <sys/socket.h>
#include <sys/wait.h>

namespace {

using namespace std::string_literals;
using testing::ElementsAre;

char name[] = "alarm";
char data[] = "text";

// Holds the daemon's end.
class Notifying : public testing::Test {
protected:
    Notifying() { econf_plugin_config_debug(DBG_ALL, 1); }
    ~Notifying() override { conf_plugin_notifier_disable(-1); }

    // The next datagram, or nothing when none comes in time.
    std::string received(int wait_ms = 0) const {
        pollfd ready{.fd = daemon_.get(), .events = POLLIN, .revents = 0};
        char bytes[9000];
        const bool came = poll(&ready, 1, wait_ms) == 1;
        return {bytes,
                came ? static_cast<std::size_t>(read(daemon_.get(), bytes, sizeof bytes)) : 0};
    }

    conf::unique_fd daemon_{conf_plugin_notifier_enable()};
    conf::unique_node node_{conf::new_element("a")};
    const descriptor_watch watch_;
};

} // namespace

TEST_F(Notifying, SendsTheBareTextOfAnElementAndTextWithItsZeroByte) {
    xmlNode* entry = conf::add_text(node_.get(), "entry", "1 < 2");
    xmlNewProp(entry, BAD_CAST "k", BAD_CAST "v");
    conf::add_empty(entry, "b");
    conf::add_empty(node_.get(), "sibling");
    EXPECT_EQ(econf_notify(name, entry), 0);
    EXPECT_EQ(received(), "<entry k=\"v\">1 &lt; 2<b/></entry>");
    EXPECT_EQ(conf_notify(name, data), 0);
    EXPECT_EQ(received(), "text\0"s);
    EXPECT_EQ(conf_notify_nonblock(name, data + 4), 0);
    EXPECT_EQ(received(), "\0"s);
    EXPECT_THAT(plugin_log(),
                ElementsAre("INFO - Sent notification to pelmd, length is 5",
                            "INFO - Sent notification to pelmd with non block mode, length is 1"));
}

TEST_F(Notifying, RefusesWhatIsMissing) {
    void* const node = node_.get();
    void* const name_at = name;
    EXPECT_EQ(econf_notify(nullptr, node_.get()), -1);
    EXPECT_EQ(conf_notify(name, nullptr), -1);
    EXPECT_EQ(conf_notify_nonblock(nullptr, nullptr), -1);
    EXPECT_THAT(plugin_log(),
                ElementsAre(text("ERROR - Error input parameter(name=(nil), node=%p).", node),
                            text("ERROR - Error input parameter(list=%p, node=(nil)).", name_at),
                            "ERROR - Error input parameter(list=(nil), node=(nil))."));
}

TEST_F(Notifying, SaysWhyTheSystemRefuses) {
    for (const auto& send : {+[](xmlNode* node) { return econf_notify(name, node); },
                             +[](xmlNode*) { return conf_notify(name, data); }}) {
        const fault one(call::socket, EMFILE);
        EXPECT_EQ(send(node_.get()), -1);
    }
    conf_plugin_notifier_disable(-1); // takes the file away, not the socket
    EXPECT_EQ(econf_notify(name, node_.get()), -1);
    EXPECT_EQ(conf_notify(name, data), -1);
    EXPECT_EQ(conf_notify_nonblock(name, data), -1);
    const char* lost = "ERROR - Send notification alarm failed failed(No such file or directory).";
    EXPECT_THAT(plugin_log(),
                ElementsAre("ERROR - Create notification socket failed(Too many open files).",
                            "ERROR - Create notifier socket failed(Too many open files).", lost,
                            "INFO - Sent notification to pelmd, length is -1", lost,
                            "INFO - Sent notification to pelmd with non block mode, length is -1",
                            lost));
}

TEST_F(Notifying, SendsNothingThatMemoryDidNotSufficeFor) {
    const std::string words(8000, 'x'); // libxml2 has to enlarge its buffer
    conf::add_text(node_.get(), "b", words.c_str());
    std::map<std::string, int> reports;
    fail_each(call::xml, ENOMEM, [&](const fault& one) {
        const bool sent = econf_notify(name, node_.get()) == 0;
        EXPECT_EQ(sent, !one.hit());
        EXPECT_EQ(received(), sent ? "<a><b>" + words + "</b></a>" : "");
        for (const std::string& line : plugin_log())
            ++reports[line];
    });
    EXPECT_THAT(reports,
                ElementsAre(testing::Key("ERROR - Create xml buffer for cache rpc failed."),
                            testing::Key("ERROR - Dump data node failed."),
                            testing::Key("ERROR - get content from xmlbuf fail.")));
}

TEST_F(Notifying, FailsAtOnceWhenTheQueueIsFullIfToldSo) {
    while (conf_notify_nonblock(name, data) == 0)
        ;
    EXPECT_THAT(plugin_log().back(), testing::EndsWith("(Resource temporarily unavailable)."));
    EXPECT_EQ(received(), "text\0"s);
    EXPECT_EQ(conf_notify_nonblock(name, data), 0);
}

TEST_F(Notifying, LosesNothingWhenManyWaitForRoom) {
    constexpr int rounds = 100;
    for (const char* sender : {"a", "b", "c", "d"}) {
        if (fork() != 0)
            continue;
        const conf::unique_node node{conf::new_element(sender)};
        int failures = 0;
        for (int i = 0; i < rounds; ++i)
            failures +=
                conf_notify(name, std::to_string(i).data()) + econf_notify(name, node.get());
        _exit(failures);
    }
    std::map<std::string, int> count;
    for (int i = 0; i < 8 * rounds; ++i)
        ++count[received(20000)];
    EXPECT_EQ(count.size(), 4u + rounds);
    EXPECT_TRUE(count["<a/>"] == rounds && count["<d/>"] == rounds && count["99\0"s] == 4);
    for (int status = 0; wait(&status) > 0;)
        EXPECT_EQ(status, 0);
}
