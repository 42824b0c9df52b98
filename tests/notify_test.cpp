#include "support/plugin.h"

namespace {

char name[] = "alarm";
char data[] = "text";

// Holds the daemon's end, and an element that has a sibling and is longer than a first buffer.
class Notifying : public PluginTest {
protected:
    // The next datagram, or nothing when there is none.
    std::string received() const {
        char bytes[9000];
        const ssize_t size = recv(queue_.get(), bytes, sizeof bytes, MSG_DONTWAIT);
        return {bytes, size > 0 ? static_cast<std::size_t>(size) : 0};
    }

    const std::string element_ = R"(<a k="v">1 &lt; )" + std::string(8000, '2') + "<b/></a>";
    const conf::unique_node tree_{nodes_of("<list>" + element_ + "<sibling/></list>")};
    xmlNode* const node_ = tree_.get()->children;
    const conf::unique_fd queue_{conf_plugin_notifier_enable()};
};

} // namespace

TEST_F(Notifying, SendsTheBareTextOfAnElementAndTextWithItsZeroByte) {
    EXPECT_EQ(econf_notify(name, node_), 0);
    EXPECT_EQ(received(), element_);
    EXPECT_EQ(conf_notify(name, data), 0);
    EXPECT_EQ(received(), "text\0"s);
    EXPECT_EQ(conf_notify_nonblock(name, data + 4), 0);
    EXPECT_EQ(received(), "\0"s);
    EXPECT_THAT(plugin_log(), ElementsAre("INFO - Sent notification to pelmd, length is 5",
                                          "INFO - Sent notification to pelmd with non block mode, "
                                          "length is 1"));
}

TEST_F(Notifying, SaysWhatIsMissingAndWhyTheSystemRefuses) {
    EXPECT_EQ(econf_notify(nullptr, node_), -1);
    EXPECT_EQ(conf_notify(name, nullptr), -1);
    conf_plugin_notifier_disable(-1); // takes the file away, not the socket
    EXPECT_EQ(econf_notify(name, node_), -1);
    EXPECT_EQ(conf_notify(name, data), -1);
    EXPECT_EQ(log(), "Error input parameter(name=(nil), node=P).; "
                     "Error input parameter(list=P, node=(nil)).; "
                     "Send notification alarm failed failed(No such file or directory).; "
                     "Send notification alarm failed failed(No such file or directory).");
}

TEST_F(Notifying, FailsAtOnceWhenTheQueueIsFullIfToldSo) {
    int queued = 0;
    while (conf_notify_nonblock(name, data) == 0)
        ++queued;
    EXPECT_TRUE(log().ends_with("(Resource temporarily unavailable)."));
    int most = 0;
    std::ifstream("/proc/sys/net/unix/max_dgram_qlen") >> most;
    EXPECT_EQ(queued, most + 1);
}

// The kernel charges a datagram to the sender's buffer, whatever the receiver has asked for.
TEST_F(Notifying, TakesAsMuchAsTheSendersBufferHolds) {
    int room = 0;
    socklen_t size = sizeof room;
    const conf::unique_fd sender{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    EXPECT_EQ(getsockopt(sender.get(), SOL_SOCKET, SO_SNDBUF, &room, &size), 0);
    std::string longest(static_cast<std::size_t>(room) - 32 - 1, 'x'); // and the zero byte
    EXPECT_EQ(conf_notify(name, longest.data()), 0);
    longest += 'x';
    EXPECT_EQ(conf_notify(name, longest.data()), -1);
    EXPECT_EQ(log(), "Send notification alarm failed failed(Message too long).");
}
