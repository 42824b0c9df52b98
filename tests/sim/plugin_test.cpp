#include "daemon/plugin.h"

#include "hand_channel.h"
#include "hand_clock.h"
#include "journal/text_sink.h"

#include <gmock/gmock.h>

namespace pelmsim {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// A plugin that is answered nothing.
class Unanswered : public ::testing::Test, public plugin_owner {
protected:
    Unanswered() {
        events_.add(text_);
        made_->start();
        made_->register_as("ntp", {});
        receive("<rpc><method>pull</method><params><path>/a</path></params><id>1</id></rpc>");
    }

    event_loop& loop() override { return loop_; }
    bool is_taken(const std::string&) const override { return false; }
    void has_registered(const std::string&) override {}
    std::size_t weight_of_all_paths() const override { return 0; }
    bool joins_requests() const override { return false; }
    bool is_debugged(pid_t) override { return false; }
    std::optional<reply> serve(plugin&, const std::string&, const xmlNode*,
                               const arranged_answer*) override {
        return {};
    }
    void heard_from(pid_t) override {}
    void gone(const connection&) override {}

    void receive(std::string_view body) {
        frame_queue queue;
        (void)queue.add(body);
        other_.arriving = queue.front();
        printed_.clear();
        other_.ready();
    }

    hand_clock time_;
    event_loop loop_{time_};
    event_journal events_{time_};
    std::string printed_;
    text_sink text_{[this](const std::string& lines) { printed_ += lines; }, false};
    far_end other_;
    const std::shared_ptr<plugin> made_ =
        std::make_shared<plugin>(events_, faulty_hand_channel(loop_, other_), *this);
};

constexpr const char* next_request =
    "<rpc><method>push</method><params><path>/b</path></params><id>2</id></rpc>";

TEST_F(Unanswered, ItsLibraryEndsTheWaitAfterHalfAMinute) {
    time_.move(milliseconds(30000));
    receive(next_request);
    EXPECT_THAT(printed_, HasSubstr("ntp has waited 30.0 s for an answer to pull /a: its library's "
                                    "own limit of 30 s has ended that\n"));
}

TEST_F(Unanswered, OneThatIsHeardOfEarlierHasNotWaitedSoLong) {
    time_.move(milliseconds(29999));
    receive(next_request);
    EXPECT_THAT(printed_, Not(HasSubstr("own limit")));
}

} // namespace
} // namespace pelmsim
