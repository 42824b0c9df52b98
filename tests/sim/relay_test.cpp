#include "tap/relay.h"

#include <gmock/gmock.h>
#include <random>
#include <sys/socket.h>

namespace pelmsim {
namespace {

struct socket_ends {
    unique_fd far;  // what a process has
    unique_fd near; // what the relay has
};

socket_ends make_ends() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
    return {unique_fd(ends[0]), unique_fd(ends[1])};
}

// A plugin and a daemon, and the relay between them.
class Relayed : public ::testing::Test, public relay_owner {
protected:
    Relayed() { relay_->start(); }

    void passed(direction way, std::string_view bytes) override {
        (way == direction::to_peer ? told_to_plugin_ : told_to_daemon_) += bytes;
    }
    void ended(bool by_daemon) override {
        was_ended_by_daemon_ = by_daemon;
        relay_.reset();
    }

    // Lets the relay do what there is to do by now.
    void serve() {
        for (int i = 0; i < 100; ++i)
            loop_.run_once(milliseconds(0));
    }

    static ssize_t write_some(const unique_fd& end, std::string_view bytes) {
        return send(end.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }

    // All that has come: what is read of it, and whether that was the end.
    static std::string read_all(const unique_fd& end, bool& is_end) {
        std::string all;
        char bytes[65536];
        ssize_t count = 0;
        while ((count = read(end.get(), bytes, sizeof bytes)) > 0)
            all.append(bytes, static_cast<std::size_t>(count));
        is_end = count == 0;
        return all;
    }
    std::string read_all(const unique_fd& end) {
        serve();
        return read_all(end, is_end_);
    }

    short events_of(const unique_fd& end) {
        serve();
        pollfd its{.fd = end.get(), .events = POLLIN | POLLOUT | POLLRDHUP, .revents = 0};
        (void)poll(&its, 1, 0);
        return its.revents;
    }

    // Writes until there is no room anywhere on the way.
    std::string fill(const unique_fd& end) {
        std::string sent;
        for (int in_vain = 0; in_vain < 2; serve()) {
            std::string bytes(10007, 'a');
            std::ranges::generate(bytes, [this] { return static_cast<char>(random_()); });
            const ssize_t count = write_some(end, bytes);
            sent.append(bytes, 0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
            in_vain = count < 0 ? in_vain + 1 : 0;
        }
        return sent;
    }

    const clock_face time_;
    event_loop loop_{time_};
    std::minstd_rand random_{20260131};
    socket_ends plugin_ = make_ends();
    socket_ends daemon_ = make_ends();
    std::unique_ptr<relay> relay_ =
        std::make_unique<relay>(loop_, std::move(plugin_.near), std::move(daemon_.near), *this);
    std::string told_to_plugin_;
    std::string told_to_daemon_;
    bool is_end_ = false;
    bool was_ended_by_daemon_ = false;
};

TEST_F(Relayed, BytesPassBothWaysAsTheyAreHoweverTheyAreSplit) {
    std::string sent[2];
    std::string received[2];
    const unique_fd* const ends[] = {&plugin_.far, &daemon_.far};
    for (int i = 0; i < 3000; ++i) {
        const std::size_t from = random_() % 2;
        std::string bytes(1 + random_() % 3000, '\0');
        std::ranges::generate(bytes, [this] { return static_cast<char>(random_()); });
        const ssize_t count = write_some(*ends[from], bytes);
        sent[from].append(bytes, 0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        loop_.run_once(milliseconds(0));
        if (random_() % 5 == 0)
            received[from] += read_all(*ends[1 - from], is_end_);
    }
    received[0] += read_all(daemon_.far);
    received[1] += read_all(plugin_.far);
    EXPECT_TRUE(received[0] == sent[0]);
    EXPECT_TRUE(received[1] == sent[1]);
    EXPECT_TRUE(told_to_daemon_ == sent[0]);
    EXPECT_TRUE(told_to_plugin_ == sent[1]);
}

TEST_F(Relayed, WhoWritesFasterThanTheOtherReadsHasToWait) {
    std::string sent = fill(plugin_.far);
    EXPECT_EQ(events_of(plugin_.far), 0);
    EXPECT_LT(sent.size(), 2 * 1024 * 1024U); // two sockets and what is held
    std::string received;
    while (received.size() < sent.size())
        received += read_all(daemon_.far);
    EXPECT_TRUE(received == sent);
    EXPECT_EQ(events_of(plugin_.far), POLLOUT);
}

TEST_F(Relayed, AHangUpComesBehindWhatWasSaid) {
    (void)write_some(plugin_.far, "last words");
    plugin_.far.reset();
    EXPECT_EQ(read_all(daemon_.far), "last words");
    EXPECT_TRUE(is_end_);
    EXPECT_NE(events_of(daemon_.far) & POLLHUP, 0);
    EXPECT_EQ(write_some(daemon_.far, "a"), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(relay_, nullptr);
    EXPECT_FALSE(was_ended_by_daemon_);
}

TEST_F(Relayed, AHangUpWaitsUntilTheOtherHasRoomForWhatWasSaid) {
    const std::string sent = fill(daemon_.far);
    daemon_.far.reset();
    serve();
    EXPECT_NE(relay_, nullptr);
    std::string received;
    while (!is_end_)
        received += read_all(plugin_.far);
    EXPECT_TRUE(received == sent);
    serve();
    EXPECT_TRUE(was_ended_by_daemon_);
}

TEST_F(Relayed, WhoEndsOneDirectionStillHears) {
    (void)shutdown(plugin_.far.get(), SHUT_WR);
    EXPECT_EQ(events_of(daemon_.far), POLLIN | POLLOUT | POLLRDHUP);
    (void)write_some(daemon_.far, "still");
    EXPECT_EQ(read_all(plugin_.far), "still");
    daemon_.far.reset();
    EXPECT_EQ(read_all(plugin_.far), "");
    EXPECT_TRUE(is_end_);
}

TEST_F(Relayed, WhoWritesToOneThatReadsNoMoreIsTold) {
    (void)shutdown(daemon_.far.get(), SHUT_RD);
    (void)write_some(plugin_.far, "to nobody");
    serve();
    EXPECT_EQ(write_some(plugin_.far, "a"), -1);
    EXPECT_EQ(errno, EPIPE);
    (void)write_some(daemon_.far, "still");
    EXPECT_EQ(read_all(plugin_.far), "still");
}

// With what came for it unread, and more on its way.
TEST_F(Relayed, OneThatGoesIsNotWaitedFor) {
    (void)fill(daemon_.far);
    plugin_.far.reset();
    EXPECT_NE(events_of(daemon_.far) & POLLHUP, 0);
    EXPECT_EQ(relay_, nullptr);
}

} // namespace
} // namespace pelmsim
