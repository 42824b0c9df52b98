#include "wire/connection.h"

#include "hand_channel.h"
#include "hand_clock.h"
#include "model/xml.h"

#include <gmock/gmock.h>

namespace pelmsim {
namespace {

using ::testing::ElementsAre;

using notes = std::vector<std::string>;

class noting_connection final : public connection {
public:
    noting_connection(event_journal& events, std::unique_ptr<faulty_channel> line,
                      connection_owner& owner, notes& all)
        : connection(events, std::move(line), owner), all_(all) {}
    peer who() const override { return {role::plugin, "ntp", pid()}; }

private:
    void on_frame(unique_node body) override {
        all_.push_back(local_name(body.get()));
        send(body.get(), fault_of({.is_answer = true, .method = "a", .id = "1"}));
    }
    void on_unreadable(const defect&) override { all_.emplace_back("unreadable"); }

    notes& all_;
};

// It owns a connection, too.
class Connected : public ::testing::Test, public connection_owner {
protected:
    Connected() { made_->start(); }

    void heard_from(pid_t) override { notes_.emplace_back("heard"); }
    void gone(const connection&) override { notes_.emplace_back("gone"); }
    std::optional<fault> fault_of(const peer&, const outgoing_frame&) override { return fault_; }

    static std::string frame_of(std::string_view body) {
        frame_queue queue;
        (void)queue.add(body);
        return std::string(queue.front());
    }

    hand_clock time_;
    event_loop loop_{time_};
    event_journal events_{time_};
    far_end other_;
    notes notes_;
    std::optional<fault> fault_;
    const std::shared_ptr<noting_connection> made_ = std::make_shared<noting_connection>(
        events_, faulty_hand_channel(loop_, other_), *this, notes_);
    const unique_node body_ = new_element("a");
};

TEST_F(Connected, WhatCameBeforeAHangUpIsReadAndThenItsOwnerIsTold) {
    other_.arriving = frame_of("<a/>") + frame_of("<b/>");
    other_.ready();
    other_.is_down = true;
    other_.ready();
    EXPECT_THAT(notes_, ElementsAre("heard", "a", "b", "heard", "gone"));
    EXPECT_FALSE(made_->is_open());
}

TEST_F(Connected, WhatFindsNoRoomIsWrittenOnceThereIsSome) {
    other_.room = 5;
    made_->send(body_.get());
    EXPECT_EQ(other_.taken, frame_of("<a/>").substr(0, 5));
    other_.room = 1000;
    other_.ready();
    EXPECT_EQ(other_.taken, frame_of("<a/>"));
}

TEST_F(Connected, WhatWasKeptBackGoesOutInOnePieceWithTheNext) {
    made_->keep_back(body_.get());
    other_.ready();
    EXPECT_EQ(other_.writes, 0);
    made_->send(body_.get());
    EXPECT_EQ(other_.writes, 1);
    EXPECT_EQ(other_.taken.size(), 2 * frame_of("<a/>").size());
}

TEST_F(Connected, WhatWasKeptBackIsLetGo) {
    made_->keep_back(body_.get());
    made_->let_go();
    EXPECT_EQ(other_.taken, frame_of("<a/>"));
}

TEST_F(Connected, OneThatReadsNoMoreMayStillSay) {
    other_.reads_no_more = true;
    made_->send(body_.get());
    other_.arriving = frame_of("<b/>");
    other_.ready();
    EXPECT_THAT(notes_, ElementsAre("heard", "b"));
}

TEST_F(Connected, WhatComesOnceAFaultIsToEndItIsNotServed) {
    fault_ = {.kind = fault_kind::hang_up_before};
    other_.arriving = frame_of("<a/>") + frame_of("<b/>");
    other_.ready();
    made_->send(body_.get());
    loop_.run_once(milliseconds(0));
    EXPECT_THAT(notes_, ElementsAre("heard", "a", "gone"));
    EXPECT_EQ(other_.taken, "");
    EXPECT_EQ(made_->faults(), 1);
}

} // namespace
} // namespace pelmsim
