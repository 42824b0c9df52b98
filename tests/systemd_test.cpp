// What systemd is told, at a socket as it makes one.
#include "support/test.h"

#include <pelmconf/notify.h>

namespace {

// Listens at a name as NOTIFY_SOCKET has it.
class listener {
public:
    explicit listener(std::string name) : name_(std::move(name)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name_.copy(address.sun_path, sizeof address.sun_path);
        if (name_[0] == '@')
            address.sun_path[0] = '\0';
        const std::size_t bytes = offsetof(sockaddr_un, sun_path) + name_.size();
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address),
                       static_cast<socklen_t>(bytes)),
                  0);
    }
    ~listener() { (void)unlink(name_.c_str()); }

    // The next datagram, or nothing when there is none.
    std::string received() const {
        char bytes[100];
        const ssize_t size = recv(socket_.get(), bytes, sizeof bytes, MSG_DONTWAIT);
        return {bytes, size > 0 ? static_cast<std::size_t>(size) : 0};
    }

private:
    std::string name_;
    conf::unique_fd socket_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

class TellingSystemd : public testing::Test {
protected:
    ~TellingSystemd() override { (void)unsetenv("NOTIFY_SOCKET"); }
    descriptor_watch watch_;
};

} // namespace

TEST_F(TellingSystemd, SaysReadyAndAliveAtPathsAndAbstractAddresses) {
    for (const std::string name : {"/var/tmp/notify", "@pelmconf/test/notify"}) {
        const listener systemd(name);
        (void)setenv("NOTIFY_SOCKET", name.c_str(), 1);
        EXPECT_EQ(pelmconf_notify_ready(), 1);
        EXPECT_EQ(systemd.received(), "READY=1");
        EXPECT_EQ(pelmconf_notify_alive(), 1);
        EXPECT_EQ(systemd.received(), "WATCHDOG=1");
    }
}

TEST_F(TellingSystemd, TellsNobodyWhereNobodyAsks) {
    (void)unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(pelmconf_notify_ready(), 0);
    (void)setenv("NOTIFY_SOCKET", "", 1);
    EXPECT_EQ(pelmconf_notify_ready(), 0);
}

TEST_F(TellingSystemd, SaysWhyItFails) {
    const std::pair<std::string, int> cases[] = {{"relative", EINVAL},
                                                 {"/" + std::string(107, 'x'), EINVAL},
                                                 {"/" + std::string(106, 'x'), ENOENT},
                                                 {"@nobody", ECONNREFUSED}};
    for (const auto& [name, reason] : traced(cases)) {
        (void)setenv("NOTIFY_SOCKET", name.c_str(), 1);
        EXPECT_EQ(pelmconf_notify_ready(), -1);
        EXPECT_EQ(errno, reason);
    }
}
