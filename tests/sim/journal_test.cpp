#include "journal/json_sink.h"
#include "journal/text_sink.h"

#include "hand_clock.h"

#include <cstdlib>
#include <gmock/gmock.h>

namespace pelmsim {
namespace {

class Reporting : public ::testing::Test {
protected:
    Reporting() {
        setenv("TZ", "UTC", 1);
        journal_.add(text_);
        journal_.add(json_);
    }

    hand_clock time_;
    event_journal journal_{time_};
    std::string printed_;
    std::string written_;
    text_sink text_{[this](const std::string& lines) { printed_ += lines; }, false};
    json_sink json_{[this](const std::string& line) { written_ += line; }};
};

TEST_F(Reporting, ARequestSaysWhatCameOfIt) {
    const outcome refused = outcome::error(22, "no \"such\"\n");
    journal_.report({.kind = event_kind::request,
                     .who = {role::plugin, "ntp", 7},
                     .way = direction::to_peer,
                     .method = "publish",
                     .id = "3",
                     .path = "/a",
                     .operation = 2,
                     .result = &refused,
                     .took = std::chrono::milliseconds(2)});
    EXPECT_EQ(printed_, "00:00:00.000  ntp          > publish /a rm: "
                        "error 22 (no \"such\"\\n) (2.0 ms)\n");
    EXPECT_EQ(written_, R"({"time":"1970-01-01T00:00:00.000Z","kind":"request","role":"plugin",)"
                        R"("peer":"ntp","pid":7,"direction":"to","method":"publish","id":"3",)"
                        R"("path":"/a","operation":2,"outcome":"error","code":22,)"
                        R"("reason":"no \"such\"\u000a","ms":2.000000})"
                        "\n");
}

TEST_F(Reporting, BytesThatAreNoTextDoNotSpoilALine) {
    journal_.report({.kind = event_kind::output, .who = {role::program, "p", 1}, .text = "\x9B!"});
    EXPECT_EQ(printed_, "              p| \\x9b!\n");
    EXPECT_EQ(written_, R"({"time":"1970-01-01T00:00:00.000Z","kind":"output","role":"program",)"
                        "\"peer\":\"p\",\"pid\":1,\"text\":\"\xEF\xBF\xBD!\"}\n");
}

} // namespace
} // namespace pelmsim
