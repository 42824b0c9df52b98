#include "daemon/faults.h"

#include "hand_channel.h"
#include "journal/text_sink.h"
#include "script/fault_command.h"
#include "script/syntax.h"
#include "scripting.h"
#include "wire/hold_up.h"

#include <conf_agent.h>
#include <set>

namespace pelmsim {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Optional;

class Faults : public Scripting {
protected:
    // What the frame is struck by, or nothing.
    std::string strike(const outgoing_frame& frame, const peer& who = {role::plugin, "ntp", 7}) {
        const auto planted = on_.daemon.faults().strike(who, frame);
        return planted ? fault_text(*planted) : "";
    }

    const outgoing_frame pulled_{.is_answer = true, .method = "pull", .id = "3"};
    const outgoing_frame published_{.is_answer = false, .method = "publish", .id = "4"};
};

TEST_F(Faults, StrikeTheFramesTheyAreForAsOftenAsTheyShould) {
    run("fault delay 50 answer pull to ntp times 2\nfault wrong-id request\nfault nothing to "
        "dns\n");
    EXPECT_EQ(strike(pulled_), "delay 50");
    EXPECT_EQ(strike(published_), "wrong-id");
    EXPECT_EQ(strike(published_), "");
    EXPECT_EQ(strike(pulled_), "delay 50");
    EXPECT_EQ(strike(pulled_), "");
    EXPECT_EQ(strike({.is_answer = true, .method = "register", .id = "1", .name = "dns"}),
              "nothing");
}

TEST_F(Faults, AreForgottenTogether) {
    run("fault nothing\nchaos 1 5\nfault off\n");
    EXPECT_EQ(strike(pulled_), "");
}

TEST_F(Faults, AreToldOfWithTheirFrame) {
    run("fault error 5 \"not now\"\n");
    (void)strike(published_);
    (void)strike(pulled_);
    EXPECT_THAT(printed_, HasSubstr("ntp          > fault error 5 not now: answer to pull\n"));
}

TEST_F(Faults, OfASeedAreTheSameEachTime) {
    EXPECT_THAT(run("chaos 5 4"),
                HasSubstr("    delay 345, in its turn, when 7 have gone by\n"
                          "    hang-up-before, in its turn, when 5 have gone by\n"
                          "    hang-up-after, in its turn, when 1 have gone by\n"
                          "    error 81 chaos, in its turn, when 3 have gone by\n"));
}

TEST_F(Faults, OfChaosComeInTheirTurn) {
    run("chaos 5 4");
    std::vector<std::string> all;
    for (int i = 0; i < 40; ++i)
        if (std::string each = strike(pulled_); !each.empty())
            all.push_back(std::to_string(i) + " " + each);
    EXPECT_THAT(all, ElementsAre("7 delay 345", "13 hang-up-before", "15 hang-up-after",
                                 "19 error 81 chaos"));
}

TEST_F(Faults, OfChaosThatSuitNothingLetTheNextHaveItsTurn) {
    run("chaos 5 4");
    for (int i = 0; i < 40; ++i)
        (void)strike(published_);
    EXPECT_EQ(on_.daemon.faults().struck(), 3);
    EXPECT_THAT(run("fault"), HasSubstr("error 81 chaos, in its turn"));
    run("chaos 3 20");
    for (int i = 0; i < 1000; ++i)
        (void)strike(published_);
    for (const armed_fault& each : on_.daemon.faults().armed())
        EXPECT_FALSE(row_of(each.what.kind).of_requests) << fault_text(each.what);
}

TEST_F(Faults, SaysWhatIsNoFault) {
    EXPECT_THAT(run("fault dely 5"), HasSubstr("\"dely\" is no fault: did you mean delay?"));
    EXPECT_THAT(run("fault delay"), HasSubstr("a number of milliseconds is missing"));
    EXPECT_THAT(run("fault joined request"), HasSubstr("joined strikes answers alone"));
    EXPECT_THAT(run("fault nothing answer pul"), HasSubstr("\"pul\" is no method"));
    EXPECT_THAT(run("fault own-id answer get-capability"), HasSubstr("own-id strikes no agent"));
    EXPECT_THAT(run("fault joined answer register"), HasSubstr("to an active plugin alone"));
    EXPECT_THAT(run("fault nothing often"), HasSubstr("\"often\" is neither answer nor request"));
}

TEST(FaultMenu, StandsInTheGrammar) {
    std::set<std::string> names{"off"};
    for (const fault_row& each : all_faults())
        names.insert(each.name);
    const auto known = first_keywords(fault_arguments);
    EXPECT_EQ(std::set<std::string>(known.begin(), known.end()), names);
}

// Agents that say all they have to say at once.
class FaultsOfAgents : public Faults {
protected:
    FaultsOfAgents() { on_.daemon.open(); }

    static unique_fd agent() {
        frame_queue said;
        (void)said.add("<rpc message-id='1'><create-session><username>eve</username>"
                       "</create-session></rpc>");
        (void)said.add("<rpc message-id='2'><get-capability/></rpc>", true);
        unique_fd made(conf_agent_init());
        EXPECT_EQ(write(made.get(), said.front().data(), said.front().size()),
                  static_cast<ssize_t>(said.front().size()));
        return made;
    }

    std::string serve() {
        printed_.clear();
        for (int i = 0; i < 4; ++i)
            on_.take_in();
        return printed_;
    }
};

TEST_F(FaultsOfAgents, StrikeALineThatIsAboutToEndNoMore) {
    run("fault hang-up-before answer create-session to eve\nfault nothing to eve");
    const unique_fd its = agent();
    EXPECT_THAT(serve(), HasSubstr("fault hang-up-before: answer to create-session"));
    EXPECT_THAT(run("fault"), HasSubstr("nothing to eve"));
}

TEST_F(FaultsOfAgents, OfOneDoNotUndoThoseOfAnother) {
    run("fault restart 300\nfault closed 100");
    const unique_fd one = agent();
    const unique_fd other = agent();
    EXPECT_THAT(serve(), HasSubstr("the daemon restarts"));
}

TEST_F(FaultsOfAgents, ADaemonThatCannotComeBackTriesAgain) {
    run("fault restart 300");
    const unique_fd its = agent();
    serve();
    const int taken = conf_agent_service_enable();
    time_.move(milliseconds(300));
    EXPECT_THAT(serve(), HasSubstr("new connections have to wait: process "));
    conf_agent_service_disable(taken);
    time_.move(milliseconds(1000));
    serve();
    EXPECT_TRUE(unique_fd(conf_agent_init()));
}

TEST(HoldUp, IsWhatHasGoneByOfEachThatLasts) {
    const moment begin = moment() + milliseconds(1000);
    hold_up its;
    its.begin(begin, milliseconds(100));
    its.begin(begin, milliseconds(50));
    EXPECT_EQ(its.total(begin + milliseconds(120)), milliseconds(120));
    EXPECT_EQ(its.total(begin + milliseconds(900)), milliseconds(150));
    its.begin(begin + milliseconds(900), {});
    its.end(begin + milliseconds(910));
    EXPECT_EQ(its.total(begin + milliseconds(5000)), milliseconds(160));
}

class FaultyChannel : public ::testing::Test {
protected:
    FaultyChannel() {
        line_.start([this] { ++calls_; });
    }

    hand_clock time_;
    event_loop loop_{time_};
    far_end other_;
    faulty_channel line_{loop_, std::make_unique<hand_channel>(other_)};
    int calls_ = 0;
};

TEST_F(FaultyChannel, LetsNothingPassForATime) {
    line_.delay_at(3, milliseconds(50));
    EXPECT_THAT(line_.write("abcdef"), Optional(std::size_t{3}));
    EXPECT_THAT(line_.write("def"), Optional(std::size_t{0}));
    time_.move(milliseconds(50));
    loop_.run_once(milliseconds(0));
    EXPECT_EQ(calls_, 1);
    EXPECT_THAT(line_.write("def"), Optional(std::size_t{3}));
}

TEST_F(FaultyChannel, StopsOnceItHasGoneSoFar) {
    bool is_stopped = false;
    line_.stop_at(2, faulty_channel::stop::at_once, [&] { is_stopped = true; });
    loop_.run_once(milliseconds(0));
    EXPECT_FALSE(is_stopped);
    (void)line_.write("abc");
    loop_.run_once(milliseconds(0));
    EXPECT_TRUE(is_stopped);
    EXPECT_EQ(other_.taken, "ab");
    EXPECT_FALSE(other_.is_heard);
}

TEST_F(FaultyChannel, StopsInTheEndWhereNothingIsRead) {
    bool is_stopped = false;
    other_.room = 0;
    line_.delay_at(0, milliseconds(5000));
    line_.stop_at(2, faulty_channel::stop::once_read, [&] { is_stopped = true; });
    (void)line_.write("abc");
    time_.move(milliseconds(5000));
    loop_.run_once(milliseconds(0));
    EXPECT_FALSE(is_stopped);
    time_.move(milliseconds(1000));
    loop_.run_once(milliseconds(0));
    EXPECT_TRUE(is_stopped);
}

TEST_F(FaultyChannel, ReadsNothingWhileItIsDeaf) {
    std::array<char, 8> room{};
    other_.arriving = "abc";
    line_.be_deaf(milliseconds(50), [&] { (void)line_.hear_again(); });
    EXPECT_FALSE(other_.is_heard);
    EXPECT_THAT(line_.read(room), Optional(std::size_t{0}));
    time_.move(milliseconds(50));
    loop_.run_once(milliseconds(0));
    EXPECT_TRUE(other_.is_heard);
    EXPECT_THAT(line_.read(room), Optional(std::size_t{3}));
}

} // namespace
} // namespace pelmsim
