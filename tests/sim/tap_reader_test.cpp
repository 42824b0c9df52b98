#include "tap/tap_reader.h"

#include "journal/text_sink.h"
#include "wire/frame_queue.h"

#include "hand_clock.h"

#include <gmock/gmock.h>

namespace pelmsim {
namespace {

using ::testing::HasSubstr;

constexpr direction to_plugin = direction::to_peer;
constexpr direction to_daemon = direction::from_peer;

std::string frame_of(std::string_view body) {
    frame_queue queue;
    (void)queue.add(body);
    return std::string(queue.front());
}

std::string repeated(std::string_view text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

constexpr const char* pull =
    "<rpc><method>pull</method><params><path>/a</path></params><id>2</id></rpc>";
constexpr const char* pulled = "<reply><result/><id>2</id></reply>";

// What is told of a plugin's connection, without the time of day.
struct reading_along {
    reading_along() {
        events_.add(text_);
        queue_.push(
            {.what = passing::opened, .connection = 1, .who = {.is = role::plugin, .pid = 7}});
    }

    std::string told_of(direction way, std::string bytes, std::size_t lost = 0) {
        queue_.push({.what = passing::bytes,
                     .connection = 1,
                     .way = way,
                     .bytes = std::move(bytes),
                     .lost = lost,
                     .at = time_.now()});
        return told();
    }
    std::string said(direction way, std::string_view body) { return told_of(way, frame_of(body)); }
    std::string told() {
        printed_.clear();
        reader_.finish();
        return printed_;
    }
    std::string pulls() {
        (void)said(to_daemon, pull);
        return said(to_plugin, pulled);
    }

    hand_clock time_;
    std::string printed_;
    text_sink text_{[this](const std::string& lines) { printed_ += lines.substr(14); }, false};
    event_loop loop_{time_};
    event_journal events_{time_};
    passage_queue queue_;
    tap_reader reader_{loop_, events_, queue_, [](pid_t) {}};
};

struct ReadingAlong : ::testing::Test, reading_along {};

TEST_F(ReadingAlong, AnAnswerThatNobodyWaitsForIsToldOf) {
    EXPECT_THAT(said(to_daemon, "<reply><result/><id>3</id></reply>"),
                HasSubstr("< answer with id 3: nobody waits for it"));
    EXPECT_THAT(said(to_plugin, "<reply><result/><id>4</id></reply>"),
                HasSubstr("> answer with id 4: nobody waits for it"));
}

// Both sides may send anything: it is told of once, and what follows is read again.
TEST_F(ReadingAlong, WhatCannotBeReadIsToldOfOnceAndReadingGoesOn) {
    const struct {
        std::string bytes;
        const char* told;
    } cases[] = {
        {"twelve bytes", "unreadable: 12 bytes that begin no frame\n"},
        {frame_of(std::string(0x500000, 'a')), "5242880 bytes is not read along: it is too"},
        {frame_of("<a>"), "a frame of 3 bytes that is no well-formed XML"},
        {frame_of("<!DOCTYPE a [<!ENTITY b \"" + repeated("ha", 1000) + "\">]><a>&b;</a>"),
         "with a document type"},
        {frame_of("<a " + repeated("b='c' ", 5000) + "/>"), "with too many attributes"},
        {frame_of(repeated("<a b='c'>", 400)), "that is no well-formed XML"},
        {frame_of("<a>\xC3</a>"), "0xc3 at byte 3"},
    };
    for (const direction way : {to_daemon, to_plugin})
        for (const auto& each : cases) {
            reading_along fresh;
            EXPECT_THAT(fresh.told_of(way, each.bytes), HasSubstr(each.told));
            EXPECT_EQ(fresh.told_of(way, each.bytes), "");
            EXPECT_THAT(fresh.pulls(), HasSubstr("< pull /a: ok"));
        }
}

TEST_F(ReadingAlong, BehindAGapTheNextFrameIsFound) {
    const std::string frame = frame_of(pull);
    (void)told_of(to_daemon, frame.substr(0, 20));
    EXPECT_THAT(told_of(to_daemon, "rest" + frame, 100),
                HasSubstr("100 bytes that nobody has read along"));
    EXPECT_THAT(said(to_plugin, pulled), HasSubstr("< pull /a: ok"));
}

// What it belongs to, and what became of that, may have passed unread.
TEST_F(ReadingAlong, BehindAGapNothingIsSaidThatNobodyKnows) {
    (void)said(to_daemon, pull);
    EXPECT_THAT(told_of(to_plugin, "", 100), HasSubstr("100 bytes that nobody has read along"));
    EXPECT_EQ(said(to_plugin, pulled), "");
    queue_.push({.what = passing::ended, .connection = 1});
    EXPECT_EQ(told(), "");
}

TEST_F(ReadingAlong, WhatIsUnfinishedTakesNoMoreThanItsRoom) {
    const std::string begun = frame_of(std::string(4'000'000, 'a')).substr(0, 3'000'000);
    for (unsigned number = 2; number < 40; ++number) {
        queue_.push({.what = passing::opened, .connection = number, .who = {.is = role::plugin}});
        queue_.push(
            {.what = passing::bytes, .connection = number, .way = to_daemon, .bytes = begun});
        (void)told();
    }
    EXPECT_THAT(printed_, HasSubstr("too many are unfinished"));
}

TEST_F(ReadingAlong, WhoRelaysDoesNotWaitForWhoReads) {
    std::size_t taken = 0;
    const passage bytes{.what = passing::bytes, .connection = 1, .bytes = std::string(65536, 'a')};
    while (queue_.offer(bytes))
        ++taken;
    EXPECT_LE(taken, passage_queue::most_bytes / 65536);
    (void)told();
    EXPECT_TRUE(queue_.offer(bytes));
}

TEST_F(ReadingAlong, ANotificationIsShown) {
    queue_.push({.what = passing::datagram, .bytes = std::string("<n>1</n>\0", 9)});
    EXPECT_THAT(told(), HasSubstr("notifier     < 8 bytes\n"));
    queue_.push({.what = passing::datagram, .bytes = "<n/>", .lost = 3});
    EXPECT_THAT(told(), HasSubstr("3 notifications that nobody has read along"));
}

} // namespace
} // namespace pelmsim
