#include "recording/recording.h"

#include "journal/text_sink.h"
#include "model/problem.h"
#include "recording/reader.h"
#include "recording/replay.h"
#include "recording/sayable.h"
#include "script/line_reader.h"

#include "hand_clock.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace pelmsim {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

std::string content(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

// Everything in what another reader of the journal would print.
std::string printed(const std::string& recording, int* unreadable = nullptr) {
    std::string lines;
    text_sink text([&](const std::string& each) { lines += each; }, false);
    text.show_frames(true);
    text.show_commands();
    std::istringstream in(recording);
    recording_reader reader(in);
    while (reader.next())
        if (reader.what() != nullptr)
            text.take(*reader.what());
    if (unreadable != nullptr)
        *unreadable = reader.unreadable();
    return lines;
}

class Recording : public ::testing::Test {
protected:
    Recording() {
        folder_ = fs::temp_directory_path() / ("recording." + std::to_string(getpid()));
        fs::create_directory(folder_);
        text_.show_frames(true);
        text_.show_commands();
        events_.add(text_);
    }
    ~Recording() override { fs::remove_all(folder_); }

    std::string file(const char* name = "run.json") const { return folder_ / name; }

    // Of each kind of member one event, and texts that are no texts.
    void report_something() const {
        const peer ntp{role::plugin, "ntp", 7};
        const unique_nodes body = parse_nodes("<params><v>&lt;1</v><v a=\"2\"/></params>");
        outcome good;
        good.data = parse_nodes("<state>up</state><state>down</state>");
        const outcome bad = outcome::error(22, "no\n\"such\" \xF0\x9F\x90\xA7");
        events_.report({.kind = event_kind::command, .text = "a\tb", .place = "net.sim:1: "});
        events_.report({.kind = event_kind::frame,
                        .who = ntp,
                        .way = direction::to_peer,
                        .id = "65535",
                        .body = body.get(),
                        .count = 9});
        events_.report({.kind = event_kind::request,
                        .who = ntp,
                        .way = direction::to_peer,
                        .method = "subscribe",
                        .called = "status",
                        .path = "/a",
                        .operation = 0,
                        .result = &bad,
                        .took = std::chrono::milliseconds(1)});
        events_.report({.kind = event_kind::outcome, .result = &good});
        events_.report({.kind = event_kind::closed,
                        .who = {role::agent, "admin", 8, false},
                        .why = cause::by_peer});
        events_.report({.kind = event_kind::expectation,
                        .text = "ok",
                        .place = "net.sim:2: ",
                        .got = "error 5",
                        .good = false});
        events_.report({.kind = event_kind::ended, .who = {role::program, "p", 9}, .code = 11});
        events_.report(
            {.kind = event_kind::output, .who = {role::program, "p", 9}, .text = {'a', 0}});
    }

    fs::path folder_;
    hand_clock time_;
    event_journal events_{time_};
    std::string printed_;
    text_sink text_{[this](const std::string& lines) { printed_ += lines; }, false};
};

TEST_F(Recording, IsThereAsSoonAsSomethingHasHappenedAndForItsOwnerAlone) {
    recording kept({file()});
    events_.add(kept);
    report_something();
    EXPECT_EQ(printed(content(file())), printed_);
    EXPECT_EQ(fs::status(file()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(Recording, TakesThePlaceOfAnotherOneAndOfNothingElse) {
    std::ofstream(file("notes")) << "mine";
    fs::create_symlink(file("elsewhere"), file("link"));
    fs::create_directory(file("folder"));
    EXPECT_THROW(recording({file("notes")}), problem);
    EXPECT_THROW(recording({file("link")}), problem);
    EXPECT_THROW(recording({file("folder")}), problem);
    EXPECT_THROW(recording({file("none/run.json")}), problem);
    EXPECT_EQ(content(file("notes")), "mine");
    EXPECT_FALSE(fs::exists(file("elsewhere")));

    recording({file()}).finish();
    fs::create_hard_link(file(), file("other_name"));
    chmod(file().c_str(), 0644);
    recording({file()}).finish("broken");
    EXPECT_THAT(content(file()), HasSubstr(R"("complete":true,"mistake":"broken")"));
    EXPECT_THAT(content(file("other_name")), Not(HasSubstr("broken")));
    EXPECT_EQ(fs::status(file()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(Recording, OfAnyBytesIsReadAsFarAsItCanBe) {
    recording kept({file()});
    events_.add(kept);
    report_something();
    const std::string whole = content(file());
    int unreadable = 0;
    for (std::size_t at = 0; at <= whole.size(); ++at) {
        EXPECT_THAT(printed_, StartsWith(printed(whole.substr(0, at), &unreadable)));
        EXPECT_LE(unreadable, 1);
    }
    const std::string bytes("\"\\{}[],:0-9e<\n\x80\0u", 17);
    for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string changed = whole;
        changed[at] = bytes[at % bytes.size()];
        (void)printed(changed, &unreadable);
        EXPECT_LE(unreadable, 2);
    }
}

TEST_F(Recording, HasLinesThatAreSkippedWhereTheyAreNoEvents) {
    const std::string_view begin = R"({"time":"2026-01-31T12:00:00.000Z","kind":)";
    for (const char* line :
         {R"("outcome"})", R"("frame","count":-1})", R"("frame","role":"king"})",
          R"("output","text":7})", R"("ended","status":99999999999})", R"("output")",
          R"("outcome","outcome":"ok","data":7})", R"("recording","mistake":7})",
          R"("shown","time":"2026-01-31T2000000000:00:00.000Z"})", R"("output","text":"\ud83"})",
          R"("frame"}x)", R"("frame","x":[1})"}) {
        int unreadable = 0;
        EXPECT_EQ(printed(std::string(begin) + line, &unreadable), "") << line;
        EXPECT_EQ(unreadable, 1) << line;
    }
    const std::string later = R"("later","x":[{"y":"]"}],"z":null})";
    EXPECT_EQ(printed(std::string(begin) + later + "\n" + std::string(begin) +
                      R"("shown","text":"\ud83d\udc27\ud83d\u00e9"})"),
              "    \xF0\x9F\x90\xA7\xEF\xBF\xBD\n");
    const std::string bare = R"("request","direction":"from","method":"pull"})";
    EXPECT_THAT(printed(std::string(begin) + bare), HasSubstr("pull"));
}

std::string script_of(const std::string& recording) {
    std::istringstream in(recording);
    recording_reader reader(in);
    replay made;
    while (reader.next())
        made.take(reader);
    return made.script();
}

TEST_F(Recording, BecomesAScriptInWhichNothingThatWasSaidIsACommand) {
    recording kept({file()});
    events_.add(kept);
    const outcome refused = outcome::error(5, "\"no\"\\");
    events_.report({.kind = event_kind::command, .text = "set /a 1"});
    events_.report(
        {.kind = event_kind::output, .who = {role::program, "p", 9}, .text = "a\nquit\\"});
    events_.report({.kind = event_kind::outcome, .result = &refused});
    events_.report({.kind = event_kind::command, .text = "expect ok"});
    events_.report(
        {.kind = event_kind::expectation, .text = "ok", .got = "error 5", .good = false});
    events_.report({.kind = event_kind::command, .text = "set /b \nquit"});
    events_.report({.kind = event_kind::command, .text = "show\\"});
    const std::string script = script_of(content(file()));
    EXPECT_THAT(script, Not(HasSubstr("\nquit")));
    EXPECT_THAT(script, HasSubstr("#               p| a\\nquit\\ \n"
                                  "expect error 5 \"\\\"no\\\"\\\\\"\n"
                                  "# not again, as it did not hold: got error 5:\n"
                                  "#     expect ok\n"
                                  "\n# not again, as no script has such a line:\n"
                                  "#     set /b \\nquit\n"));
    EXPECT_THAT(script, EndsWith("#     show\\ \n"));
}

TEST_F(Recording, HasTextsInItsScriptAsTheyAre) {
    for (const char* text : {"a b", " a", "a\"", "\"a\" b", "\\", "it's", "'", "", "a\tb"}) {
        const auto way = as_text(text);
        ASSERT_TRUE(way) << text;
        script_line line("x " + *way);
        EXPECT_EQ(line.word("x"), "x");
        EXPECT_EQ(line.rest(), text);
    }
    EXPECT_EQ(as_text("a\nb"), std::nullopt);
    EXPECT_EQ(as_text("\x1B[2J"), std::nullopt);
    EXPECT_EQ(as_text("\xEF\xBF\xBD"), std::nullopt);
    EXPECT_EQ(as_word("/a[k=\"x y\"]"), "/a[k=\"x y\"]");
    EXPECT_EQ(as_word("a b"), "\"a b\"");
}

} // namespace
} // namespace pelmsim
