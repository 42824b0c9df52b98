#include "model/difference.h"

#include <gmock/gmock.h>

namespace pelmsim {
namespace {

using ::testing::EndsWith;

std::string difference(const std::string& expected, const std::string& got) {
    return describe_difference(parse_nodes(expected).get(), parse_nodes(got).get());
}

TEST(Differing, WhatIsTheSameIsLeftOut) {
    EXPECT_EQ(difference("<a><b>1</b></a>t", "<a> <b>1</b></a>t"), "");
    EXPECT_EQ(difference("", ""), "");
    EXPECT_EQ(difference("<a><b>1</b><c>1</c></a>", "<a><b>1</b><c>2</c></a>"),
              "/a\n- <c>1</c>\n+ <c>2</c>");
}

TEST(Differing, WhatIsMissingAndWhatIsTooMuchStandsWhole) {
    EXPECT_EQ(difference("<a><b>1</b></a><c/>", "<c><d/></c>"),
              "/\n- <a>\n-   <b>1</b>\n- </a>\n- <c/>\n+ <c>\n+   <d/>\n+ </c>");
    EXPECT_EQ(difference("", "<a/>text"), "/\n+ <a/>\n+ text");
}

TEST(Differing, EntriesOfAListStandForEachOtherByTheirKeys) {
    EXPECT_EQ(difference("<l><k>x</k><v>1</v></l><l><k>y</k><v>1</v></l>",
                         "<l><k>y</k><v>2</v></l><l><k>z</k><v>1</v></l>"),
              "/\n- <l>\n-   <k>x</k>\n-   <v>1</v>\n- </l>\n"
              "+ <l>\n+   <k>z</k>\n+   <v>1</v>\n+ </l>\n"
              "/l[k=\"y\"]\n- <v>1</v>\n+ <v>2</v>");
}

TEST(Differing, OrderCounts) {
    EXPECT_EQ(difference("<a/><b/><c/>", "<c/><a/><b/>"), "/\n+ <c/>\n- <c/>");
}

TEST(Differing, WithoutKeysTheFirstOfTwoIsToldFromTheSecond) {
    EXPECT_EQ(difference("<l><m><n/></m></l><l><m><n/><o/></m></l><l><m><p/></m></l>",
                         "<l><m><n/></m></l><l><m><p/></m></l>"),
              "/\n- <l>\n-   <m>\n-     <n/>\n-     <o/>\n-   </m>\n- </l>");
    EXPECT_EQ(difference("<l><m><n/></m></l><l><m><o>1</o></m></l>",
                         "<l><m><n/></m></l><l><m><o>2</o></m></l>"),
              "/l[2]/m\n- <o>1</o>\n+ <o>2</o>");
}

TEST(Differing, TagsAreComparedWithAllThatIsInThem) {
    EXPECT_EQ(difference("<a x=\"1\"><b>1</b></a>", "<a xmlns=\"urn:u\"><b>2</b></a>"),
              "/\n- <a x=\"1\">\n+ <a xmlns=\"urn:u\">\n/a\n- <b>1</b>\n+ <b>2</b>");
    EXPECT_EQ(difference("<n:a xmlns:n=\"u\"/>", "<a/>"), "/\n- <n:a xmlns:n=\"u\"/>\n+ <a/>");
    EXPECT_EQ(difference("<a><![CDATA[<]]></a>", "<a>&lt;</a>"),
              "/\n- <a><![CDATA[<]]></a>\n+ <a>&lt;</a>");
}

std::string leaves(int count) {
    std::string text;
    for (int i = 1; i <= count; ++i)
        text += "<a>" + std::to_string(i) + "</a>";
    return text;
}

TEST(Differing, WhatIsLongIsShownInPart) {
    const std::string all = difference(leaves(100), "");
    EXPECT_EQ(std::ranges::count(all, '\n'), 60);
    EXPECT_THAT(all, EndsWith("\n- <a>59</a>\nand 41 lines more"));
}

TEST(Differing, LongListsAreComparedPlaceByPlace) {
    const std::string between = leaves(3000);
    EXPECT_EQ(difference("<b>1</b>" + between + "<c/><d/>", "<b>2</b>" + between + "<d/>"),
              "/\n- <b>1</b>\n+ <b>2</b>\n- <c/>");
}

} // namespace
} // namespace pelmsim
