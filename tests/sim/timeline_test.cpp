#include "script/timeline.h"

#include "model/owners.h"
#include "model/xml.h"

#include <gmock/gmock.h>

namespace pelmsim {
namespace {

using ::testing::HasSubstr;

// Time goes on by half a second with each event.
class Remembering : public ::testing::Test {
protected:
    class pacing_clock final : public clock_face {
    public:
        wall_time wall() const override { return now_ += std::chrono::milliseconds(500); }

    private:
        mutable wall_time now_{};
    };

    void request(const char* id, const outcome& result) {
        journal_.report({.kind = event_kind::request,
                         .who = ntp,
                         .way = direction::to_peer,
                         .method = "publish",
                         .id = id,
                         .path = "/a",
                         .operation = 4,
                         .result = &result});
    }
    void pull(const char* path) {
        const outcome result;
        const unique_node params = new_element("params");
        add_element(params.get(), "path", path);
        journal_.report({.kind = event_kind::request,
                         .who = ntp,
                         .way = direction::from_peer,
                         .method = "pull",
                         .id = "1",
                         .path = path,
                         .result = &result,
                         .body = params.get()});
    }
    void stray(const char* id) {
        journal_.report(
            {.kind = event_kind::stray_answer, .who = ntp, .way = direction::from_peer, .id = id});
    }
    std::string all() const { return happened_.lines(1000); }
    std::string last() const { return happened_.lines(1); }

    const peer ntp{role::plugin, "ntp", 7};
    pacing_clock time_;
    event_journal journal_{time_};
    timeline happened_{journal_};
};

TEST_F(Remembering, RoundsOfSeveralLinesAreFoldedWithWhatChangesInThemLeftOut) {
    for (const char* id : {"1", "2", "3"}) {
        request(id, {});
        pull("/a");
    }
    pull("/b");
    EXPECT_EQ(all(), "+0.000    pelmsim <-- ntp           publish /a mod: ok  #1\n"
                     "+0.500    pelmsim <-- ntp           pull /a: ok\n"
                     "          … these 2 lines 3 times in 2.5 s\n"
                     "+3.000    pelmsim <-- ntp           pull /b: ok\n");
}

TEST_F(Remembering, HowOftenIsNeverShownWithoutWhat) {
    for (int i = 0; i < 4; ++i)
        pull("/a");
    EXPECT_EQ(last(), all());
}

TEST_F(Remembering, AnAnswerThatNobodyWaitsForIsDroppedByARule) {
    request("3", outcome::no_answer("time-out"));
    stray("3");
    EXPECT_THAT(last(), HasSubstr("x-- ntp           answer dropped: it comes too late for "
                                  "publish /a mod: no answer (time-out)  #3"));
    request("4", {});
    stray("4");
    EXPECT_THAT(last(), HasSubstr("there has been one already to its request"));
    stray("5");
    EXPECT_THAT(last(), HasSubstr("no request has its id"));
}

TEST_F(Remembering, TheOldestLinesGo) {
    for (int i = 0; i < 4097; ++i)
        pull(i == 0 ? "/first" : "/a");
    EXPECT_THAT(all(), HasSubstr("what came before, 1 lines, was dropped"));
    EXPECT_THAT(all(), ::testing::Not(HasSubstr("/first")));
}

} // namespace
} // namespace pelmsim
