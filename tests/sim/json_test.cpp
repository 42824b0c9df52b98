#include "script/json_command.h"

#include "model/problem.h"

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
        {R"({"id":7)", 8},
        {R"({"id":7,})", 9},
        {R"({"id":7} {})", 10},
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
        {R"({"id":7,"id":8,"command":"quit"})", ": \"id\" is there twice"},
        {R"({"comand":"quit","id":7})", "7: \"comand\" is no member of a command"},
        {R"({"command":5,"id":7})", "7: \"command\" is no string"},
        {R"({"id":7,"arguments":[]})", "7: either \"command\" or \"line\" is to be there"},
        {R"({"id":7,"command":"a","arguments":[5]})", "7: \"arguments\" is no array of strings"},
        {R"({"id":7,"line":"a","arguments":["b"]})", "7: \"arguments\" belong to a \"command\""},
    };
    for (const auto& [text, mistake] : rows)
        EXPECT_EQ(mistake_of(text), mistake) << text;
}

} // namespace
} // namespace pelmsim
