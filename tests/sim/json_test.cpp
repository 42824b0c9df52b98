#include "journal/json_sink.h"
#include "script/json_command.h"
#include "script/json_runner.h"

#include "hand_clock.h"
#include "model/problem.h"

#include <algorithm>
#include <gmock/gmock.h>

namespace pelmsim {
namespace {

using ::testing::HasSubstr;

// What is wrong with a command, behind its id.
std::string mistake_of(const std::string& text) {
    json_command command;
    try {
        read_json_command(text, command);
    } catch (const problem& why) {
        return command.id + ": " + why.what();
    }
    return command.id + ": none";
}

TEST(Reading, AnIdComesBackAsItCame) {
    for (const char* id : {"0", "-0.50e+7", "12345678901234567890", "\"\"", R"("\u00e9\\u0000é")"})
        EXPECT_EQ(mistake_of(R"({"command":"quit","id": )" + std::string(id) + " }"),
                  std::string(id) + ": none");
}

TEST(Reading, WhatIsNoJsonHasNoId) {
    const std::string no_json = ": no JSON object in UTF-8: see byte ";
    const std::pair<std::string, int> rows[] = {
        {"", 1},
        {"7", 1},
        {"[]", 1},
        {"{", 2},
        {R"({"id":7)", 8},
        {R"({"id":7,})", 9},
        {R"({"id" 7})", 7},
        {R"({7:7})", 3},
        {R"({"id":7}})", 9},
        {R"({"id":7} {})", 10},
        {R"({"id":tru})", 7},
        {R"({"id":"a	"})", 9},
        {"{\"id\":\"\xC3(\"}", 8},
        {"\xEF\xBB\xBF{}", 1},
        {std::string("{}\0", 3), 3},
        {std::string("{\"id\":\"\0\"}", 10), 8},
    };
    for (const auto& [text, byte] : rows)
        EXPECT_EQ(mistake_of(text), no_json + std::to_string(byte)) << text;
    EXPECT_EQ(mistake_of(R"({"id":7,"command":"\u0000"})"), ": no text can hold \\u0000");
    EXPECT_THAT(mistake_of(std::string(json_command::longest, '[')), HasSubstr("no JSON"));
    EXPECT_EQ(mistake_of(std::string(json_command::longest + 1, '[')),
              ": a command has at most 16777216 bytes");
}

TEST(Reading, MembersAreKnownAndOfTheirTypes) {
    const std::pair<const char*, const char*> rows[] = {
        {R"({"id":null,"command":"quit"})", ": \"id\" is neither a number nor a string"},
        {R"({"id":01,"command":"quit"})", ": \"id\" is neither a number nor a string"},
        {R"({"id":1.,"command":"quit"})", ": \"id\" is neither a number nor a string"},
        {R"({"id":7,"id":8,"command":"quit"})", ": \"id\" is there twice"},
        {R"({"comand":"quit","id":7})", "7: \"comand\" is no member of a command"},
        {R"({"command":5,"id":7})", "7: \"command\" is no string"},
        {R"({"id":7,"arguments":[]})", "7: either \"command\" or \"line\" is to be there"},
        {R"({"id":7,"command":"a","line":"b"})",
         "7: either \"command\" or \"line\" is to be there"},
        {R"({"id":7,"command":"a","arguments":"b"})", "7: \"arguments\" is no array of strings"},
        {R"({"id":7,"command":"a","arguments":[5]})", "7: \"arguments\" is no array of strings"},
        {R"({"id":7,"line":"a","arguments":["b"]})", "7: \"arguments\" belong to a \"command\""},
        {R"({"id":7,"line":["a"]})", "7: \"line\" is no string"},
    };
    for (const auto& [text, mistake] : rows)
        EXPECT_EQ(mistake_of(text), mistake) << text;
}

class Answering : public ::testing::Test {
protected:
    Answering() { events_.add(json_); }

    // What the last event that a command causes says behind the id, in single quotes.
    std::string answer(const std::string& members) {
        commands_.run("{\"id\":7," + members + "}");
        const std::string head = "\"role\":\"daemon\",\"id\":7";
        const std::size_t found = last_.find(head);
        EXPECT_NE(found, std::string::npos) << last_;
        std::string rest = last_.substr(found + head.size());
        std::ranges::replace(rest, '"', '\'');
        return rest;
    }

    const hand_clock time_;
    const descriptor_limit descriptors_;
    std::string last_;
    json_sink json_{[this](const std::string& line) { last_ = line; }};
    event_loop loop_{time_};
    event_journal events_{time_};
    session on_{loop_, events_, descriptors_};
    json_runner commands_{on_};
};

TEST_F(Answering, WordsAndTextsAreTakenAsTheyStand) {
    answer(R"("command":"set","arguments":["/a[b=\"c d\"]/e"," \"x\" "])");
    EXPECT_EQ(on_.trees.current.text(), "<a>\n  <b>c d</b>\n  <e> \"x\" </e>\n</a>");
    EXPECT_EQ(answer(R"("command":"set","arguments":["/a",""])"),
              ",'outcome':'unheard','reason':'no active plugin is concerned'}\n");
    EXPECT_EQ(on_.trees.current.text(), "<a/>");
}

TEST_F(Answering, AnAnswerSaysWhatWasShownAndWhatWasExpected) {
    EXPECT_EQ(answer(R"("command":"echo","arguments":["a"])"), "}\n");
    EXPECT_EQ(answer(R"("line":" # nothing")"), "}\n");
    EXPECT_EQ(answer(R"("command":"agents")"), ",'outcome':'ok','shown':'no agents'}\n");
    EXPECT_EQ(answer(R"("line":"expect error 5 not now")"),
              ",'good':false,'expected':'error 5 (not now)','got':'ok'}\n");
    EXPECT_EQ(answer(R"("command":"expect","arguments":["ok"])"),
              ",'good':true,'expected':'ok','got':'ok'}\n");
    EXPECT_EQ(commands_.mistakes(), 0);
    EXPECT_EQ(on_.expected.failures(), 1);
}

TEST_F(Answering, AMistakeIsAnsweredAndNothingIsDone) {
    const std::pair<const char*, const char*> rows[] = {
        {R"("command":"fly")", "there is no command \\'fly\\'"},
        {R"("command":"#")", "there is no command \\'#\\'"},
        {R"("command":"set","arguments":["/a"])", "XML, or a text is missing"},
        {R"("command":"set","arguments":["/a","1","2"])", "nothing more was expected at \\'2\\'"},
        {R"("command":"hold","arguments":[""])", "nothing more was expected at \\'\\'"},
        {R"("command":"timeout","arguments":["5 6"])",
         "a number of milliseconds above 0 is missing"},
    };
    for (const auto& [members, mistake] : rows)
        EXPECT_EQ(answer(members), ",'mistake':'" + std::string(mistake) + "'}\n");
    commands_.run("{");
    EXPECT_THAT(last_, HasSubstr(R"("role":"daemon","mistake":"no JSON object)")); // no id
    EXPECT_EQ(commands_.mistakes(), 7);
    EXPECT_EQ(on_.trees.current.text(), "");
}

} // namespace
} // namespace pelmsim
