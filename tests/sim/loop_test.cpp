#include "wire/loop.h"

#include "hand_clock.h"
#include "wire/listener.h"

#include <gmock/gmock.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace pelmsim {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Looping : public ::testing::Test {
protected:
    timer note_after(int time, int note) {
        return loop_.after(milliseconds(time), [this, note] { notes_.push_back(note); });
    }
    void watch(const unique_fd& fd, int note) {
        loop_.watch(fd.get(), POLLIN, [this, note](short) { notes_.push_back(note); });
    }
    static unique_fd ready_one() { return unique_fd(eventfd(1, EFD_CLOEXEC)); }

    hand_clock time_;
    event_loop loop_{time_};
    std::vector<int> notes_;
};

TEST_F(Looping, TimersGoWithTheirHandle) {
    (void)note_after(10, 1); // let go at once
    timer moved = note_after(10, 2);
    moved = note_after(10, 3);
    time_.move(milliseconds(10));
    loop_.run_once(milliseconds(0));
    EXPECT_THAT(notes_, ElementsAre(3));
}

TEST_F(Looping, ACancelledWaitEndsAndTheNextOneDoesNot) {
    const timer soon = loop_.after(milliseconds(0), [this] { loop_.cancel(); });
    EXPECT_FALSE(loop_.run_until([] { return false; }, milliseconds(1000)));
    EXPECT_TRUE(loop_.was_cancelled());
    EXPECT_TRUE(loop_.run_until([] { return true; }, milliseconds(1000)));
    EXPECT_FALSE(loop_.was_cancelled());
}

TEST_F(Looping, AStopThatComesBetweenTwoRoundsEndsTheNext) {
    loop_.stop();
    EXPECT_THROW(loop_.run_once(std::chrono::hours(1)), stopped);
    loop_.resume();
    loop_.run_once(milliseconds(0));
}

TEST_F(Looping, AWaitGoesOnWhileItsLimitIsSuspendedAndThenAsLongAgain) {
    const unique_fd never_quiet = ready_one();
    watch(never_quiet, 1);
    time_.run(milliseconds(1));
    moment suspended_last{};
    int looks = 0;
    const auto is_suspended = [&] {
        if (++looks < 5)
            suspended_last = loop_.now();
        return looks < 5;
    };
    EXPECT_FALSE(loop_.run_until([] { return false; }, milliseconds(50), is_suspended));
    EXPECT_GE(loop_.now() - suspended_last, milliseconds(250));
    EXPECT_FALSE(loop_.was_cancelled());
}

TEST_F(Looping, DescriptorsAreServedInTheirOrder) {
    const unique_fd first = ready_one();
    const unique_fd second = ready_one();
    watch(second, 2);
    watch(first, 1);
    loop_.run_once(milliseconds(0));
    EXPECT_THAT(notes_, ElementsAre(1, 2));
}

TEST_F(Looping, EventsOfAClosedDescriptorAreNotTakenForThoseOfTheNextOfThatNumber) {
    const unique_fd first = ready_one();
    unique_fd second = ready_one();
    loop_.watch(first.get(), POLLIN, [&](short) {
        const int number = second.get();
        loop_.forget(number);
        second.reset();
        second = ready_one();
        ASSERT_EQ(second.get(), number);
        watch(second, 2);
    });
    watch(second, 1);
    loop_.run_once(milliseconds(0));
    EXPECT_THAT(notes_, IsEmpty());
}

TEST(Probing, AListenerIsThereEvenWithItsQueueFull) {
    const sockaddr_un address{AF_UNIX, "/var/tmp/listener"};
    const unique_fd busy(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(busy.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(busy.get(), 0), 0); // room for one
    EXPECT_EQ(listening_process(address.sun_path), getpid());
    EXPECT_EQ(listening_process(address.sun_path), -1);
}

} // namespace
} // namespace pelmsim
