#include "wire/xml_excess.h"
#include "wire/xml_fault.h"

#include <gmock/gmock.h>

namespace pelmsim {
namespace {

using ::testing::StartsWith;

TEST(Reading, WhatIsNoXmlIsFoundAtItsPlace) {
    EXPECT_EQ(xml_fault("<a>\t\r\n\xC3\xA9\x7F&lt;&#1;&&;</a>"), "");
    EXPECT_EQ(xml_fault("<a>\x1F</a>"), "0x1f at byte 3 of 8, behind \"<a>\"");
    EXPECT_THAT(xml_fault("\xC3<"), StartsWith("0xc3 at byte 0 of 2, "));
    EXPECT_THAT(xml_fault("\xEF\xBF\xBE"), StartsWith("0xef 0xbf 0xbe at byte 0"));
    EXPECT_THAT(xml_fault("\xED\xA0\x80"), StartsWith("0xed 0xa0 0x80 at byte 0"));
    EXPECT_THAT(xml_fault("&a &amp; &b1;"), StartsWith("the entity &b1; at byte 9 of 13"));
}

std::string repeated(std::string_view begin, std::string_view each, int count,
                     std::string_view end) {
    std::string text(begin);
    for (int i = 0; i < count; ++i)
        text += each;
    return text.append(end);
}

TEST(Reading, WhatWouldTakeAParserLongIsNotTried) {
    EXPECT_EQ(xml_excess(repeated("<a>", "<a b='>'/>&lt;", 160000, "</a>")), "");
    EXPECT_EQ(xml_excess(repeated("<a>", "<a b='>'/>", 260000, "</a>")), "more than 500000 nodes");
    EXPECT_EQ(xml_excess(repeated("<a", " b=''", 4400, "/>")), "");
    EXPECT_THAT(xml_excess(repeated("<a", " b=''", 4500, "/>")), StartsWith("too many attributes"));
    const std::string declared = repeated("<a", " xmlns:n='u'", 2000, ">");
    EXPECT_EQ(xml_excess(repeated(declared + "</a><a>", "<a/>", 10000, "</a>")), "");
    EXPECT_THAT(xml_excess(repeated(declared, "<a/>", 10000, "</a>")), StartsWith("too many"));
    EXPECT_EQ(xml_excess("<!-- <! --><![CDATA[<!]]><?a <!?><a/>"), "");
    EXPECT_EQ(xml_excess("<!DOCTYPE a><a/>"), "a document type");
    EXPECT_EQ(xml_excess("<a b='"), "");
}

} // namespace
} // namespace pelmsim
