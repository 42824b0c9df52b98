#include "tap/tapped_notifier.h"

#include "wire/unix_address.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace pelmsim {
namespace {

constexpr const char* tap_place = "/var/tmp/of_tap";
constexpr const char* daemon_place = "/var/tmp/of_daemon";

unique_fd made() {
    return unique_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

unique_fd bound_to(const char* place) {
    unique_fd socket = made();
    const sockaddr_un at = unix_address(place);
    (void)unlink(place);
    EXPECT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&at), sizeof at), 0);
    return socket;
}

struct Notifications : ::testing::Test {
    Notifications() { tapped_.start(at_tap_.get()); }
    ~Notifications() override { tapped_.stop(); }

    // Whether it was taken.
    bool send(const std::string& text) {
        const sockaddr_un at = unix_address(tap_place);
        const auto size =
            static_cast<ssize_t>(sendto(sender_.get(), text.data(), text.size(), 0,
                                        reinterpret_cast<const sockaddr*>(&at), sizeof at));
        return size == static_cast<ssize_t>(text.size());
    }
    std::string received() {
        loop_.run_once(milliseconds(0));
        std::string text(500'000, '\0');
        const ssize_t size = recv(at_daemon_.get(), text.data(), text.size(), 0);
        return size < 0 ? "none" : text.substr(0, static_cast<std::size_t>(size));
    }

    const clock_face time_;
    event_loop loop_{time_};
    passage_queue told_;
    unique_fd at_tap_ = bound_to(tap_place);
    unique_fd at_daemon_ = bound_to(daemon_place);
    unique_fd sender_ = made();
    tapped_notifier tapped_{loop_, told_, daemon_place, [] {}};
};

TEST_F(Notifications, AsLongAsItsSenderHadRoomFor) {
    const int room = 200'000; // which the system doubles
    (void)setsockopt(sender_.get(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    const std::string longest(350'000, 'a');
    ASSERT_TRUE(send(longest));
    EXPECT_EQ(received(), longest);
}

TEST_F(Notifications, WaitForRoomAlsoWhenTheyAreEmpty) {
    int sent = 0;
    for (int before = -1; before != sent; loop_.run_once(milliseconds(0)))
        for (before = sent; send("");)
            ++sent;
    int count = 0;
    while (received() == "")
        ++count;
    EXPECT_EQ(count, sent);
    EXPECT_TRUE(tapped_.is_idle());
}

// A child of the daemon may have kept the former socket.
TEST_F(Notifications, GoToTheSocketThatIsThereNow) {
    ASSERT_TRUE(send("one"));
    EXPECT_EQ(received(), "one");
    const unique_fd former = std::exchange(at_daemon_, bound_to(daemon_place));
    ASSERT_TRUE(send("two"));
    EXPECT_EQ(received(), "two");
}

} // namespace
} // namespace pelmsim
