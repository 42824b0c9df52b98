// Bodies of any kind are compared with copies in fuzz/parser.cpp.
#include "conf_plugin/parser.h"

#include "support/plugin.h"

#include <cstdarg>
#include <cstdlib>
#include <gmock/gmock.h>
#include <libxml/parserInternals.h>
#include <optional>

using namespace conf;

namespace {

std::string heard; // by the host

[[gnu::format(printf, 2, 3)]] void hear(void*, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char* piece = nullptr;
    EXPECT_GE(vasprintf(&piece, format, arguments), 0);
    va_end(arguments);
    heard += piece;
    std::free(piece);
}

class Parser : public testing::Test {
protected:
    Parser() {
        (void)econf_plugin_config_debug(DBG_ALL, 1);
        (void)plugin_log();
        xmlSetGenericErrorFunc(nullptr, hear);
    }
    ~Parser() override {
        xmlSetGenericErrorFunc(nullptr, nullptr);
        parser_.forget();
    }

    // What comes of a body that stands in front of others, and of what is said of it.
    std::string parse(const std::string& body) {
        const std::string frames = body + "<next/>";
        std::string bytes = frames;
        const secret_node root{parser_.parse(bytes.data(), static_cast<int>(body.size()))};
        EXPECT_EQ(bytes, frames);
        return told(root.get());
    }
    static std::string parse_anew(const std::string& body) {
        const secret_node root{parse_copy(body.data(), static_cast<int>(body.size()))};
        return told(root.get());
    }
    int blocks_for(const std::string& body) {
        const block_watch watch;
        (void)parse(body);
        return watch.count();
    }

    static std::string told(xmlNode* root) {
        std::string result = text_of(root) + std::exchange(heard, "");
        for (const std::string& line : plugin_log())
            result += line;
        return result;
    }

    body_parser parser_;
};

std::string nested(int depth) {
    std::string body;
    for (int level = 0; level < depth; ++level)
        body.insert(0, "<a>").append("</a>");
    return body;
}

} // namespace

TEST_F(Parser, GivesAndSaysWhatACopyWouldHave) {
    using namespace std::string_literals;
    const std::string bodies[] = {
        "<a> <b> x </b>\n<c>&lt;&#65;<![CDATA[<]]></c><!--c--><?p i?></a><!--d--><?q?>\n",
        "<p:a xmlns:p='urn:p' xmlns='urn:d' p:x='1' y='&quot;'><b/><p:c xmlns:p='urn:q'/></p:a>",
        "<a xml:lang='en' xml:id='i'><xml:b xml:space='preserve'> </xml:b></a>",
        "<!DOCTYPE a [<!ENTITY e 'x'><!ATTLIST a b CDATA 'c'>]><a>&e;</a>",
        "<?xml version='1.0' encoding='ISO-8859-1'?><a>\xC3\xA9</a>",
        "<?xml version='1.0' encoding='ISO-8859-1'?><a>\xE9</a>",
        "\xEF\xBB\xBF<a>\xE2\x82\xAC</a>",
        " <!--c--><a/>",
        "<a/>\0"s,
        "<a/>\0<b/>"s,
        "<a/\0>"s,
        "",
        "<",
        "<?",
        "text",
        "<a>",
        "<a/><b/>",
        "<a b='1' b='2'/>",
        "<a>\xFF</a>",
        "<a>&e;</a>",
        "<p:a p:b='c'/>", // a word is said of it, but it is served
        nested(256),
        nested(257)};
    for (const std::string& body : traced(bodies))
        EXPECT_EQ(parse(body), parse_anew(body));
}

TEST_F(Parser, RefusesLargeBodiesAsACopyWould) {
    const std::string large(XML_MAX_LOOKUP_LIMIT, 'x');
    const std::string near_the_end(300, 'y');
    const std::string bodies[] = {"<a>" + large + "</a>",
                                  "<a>" + large + "<b>" + near_the_end + "</b></a>",
                                  "<a>" + large + "<!--<b>" + near_the_end + "--></a>",
                                  "<a>" + large + "<?i <b>" + near_the_end + "?></a>",
                                  "<a>" + large + "<![CDATA[<b>" + near_the_end + "]]></a>"};
    for (const std::string& body : traced(bodies))
        EXPECT_TRUE(parse(body) == parse_anew(body));
}

TEST_F(Parser, CutsATreeLooseFromItsDocument) {
    char body[] = "<a>\n<b x='1'/>\n<!--c--><?p i?>t</a>";
    const secret_node root{parser_.parse(body, sizeof body - 1)};
    xmlNode* const b = root.get()->children;
    ASSERT_EQ(b->type, XML_ELEMENT_NODE);
    EXPECT_EQ(b->line, 2);
    EXPECT_EQ(b->properties->doc, nullptr);
    EXPECT_EQ(b->properties->children->doc, nullptr);
    for (xmlNode* node = b->next; node != nullptr; node = node->next)
        EXPECT_EQ(node->line, 0) << node->type; // as copies have it
    for (xmlNode* node : {root.get(), b, b->next, root.get()->last})
        EXPECT_EQ(node->doc, nullptr) << node->type;
    EXPECT_EQ(root.get()->next, nullptr);
}

// The declaration that a reference leads to goes with the document.
TEST_F(Parser, LeavesBodiesWithDeclarationsToTheCopy) {
    for (const std::string head : {"", "\n", "\xEF\xBB\xBF"}) {
        std::string body = head + "<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>";
        const secret_node root{parser_.parse(body.data(), static_cast<int>(body.size()))};
        ASSERT_EQ(root.get()->children->type, XML_ENTITY_REF_NODE);
        EXPECT_EQ(root.get()->children->children, nullptr) << head;
    }
}

TEST_F(Parser, CopiesNothingOfABody) {
    std::string inner;
    std::string spread; // the same, with blanks in runs that are read alike by all versions
    for (int i = 0; i < 1000; ++i) {
        inner += "<b/>";
        spread += "<b" + std::string(190, ' ') + "/>";
    }
    const std::string body = "<a>" + spread + "</a>";
    const block_watch watch;
    xmlFree(xmlMalloc(body.size())); // the watch sees what is allocated by libxml2
    EXPECT_GE(watch.largest(), body.size());
    const block_watch in_place;
    EXPECT_EQ(parse(body), "<a>" + inner + "</a>");
    EXPECT_LT(in_place.largest(), body.size() / 2);
}

TEST_F(Parser, IsKeptUntilItFailsOrHasSeenMuch) {
    const std::string body = "<a>text</a>";
    const int at_first = blocks_for(body);
    const int later = blocks_for(body);
    EXPECT_LT(later, at_first);
    for (const std::string other : {"<a>", "<p:a/>", "<a xml:lang='en'/>"}) {
        (void)blocks_for(other);
        EXPECT_EQ(blocks_for(body), at_first) << other;
        EXPECT_EQ(blocks_for(body), later) << other;
    }
    int used = 0;
    while (blocks_for(body) == later && used < 100000)
        ++used;
    EXPECT_GT(used, 1000);
    EXPECT_LT(used, 100000);
    EXPECT_EQ(blocks_for(body), later);
    const block_watch watch;
    (void)blocks_for("<a>" + std::string(100000, 'x') + "</a>");
    EXPECT_LT(watch.kept(), 0); // that which was kept is gone, too
    EXPECT_EQ(blocks_for(body), at_first);
}

TEST_F(Parser, FailsOnceAndSaysSoWithoutMemory) {
    // It does not always say so, and frees what there is of a tree itself.
    constexpr bool is_newer = LIBXML_VERSION >= 21300;
    const std::string body = "<a x=\"1\"><b>" + secret + "</b></a>";
    bool has_failed = true;
    for (int skip = 0; has_failed; ++skip) {
        const secret_watch watch;
        std::string bytes = body;
        parser_.forget();
        std::optional<fault> no_memory(std::in_place, call::xml, ENOMEM, skip);
        secret_node root{parser_.parse(bytes.data(), static_cast<int>(body.size()))};
        has_failed = no_memory->hit();
        no_memory.reset();
        const std::string result = told(root.get());
        root.reset();
        if (has_failed) {
            EXPECT_THAT(result, testing::EndsWith("Translate rpc message to xml dom tree failed."));
            EXPECT_TRUE(is_newer || result.find("emory") != result.npos) << result;
        } else {
            EXPECT_EQ(result, body);
        }
        EXPECT_TRUE(is_newer || watch.texts() == 0) << skip;
        EXPECT_EQ(parse("<!--c--><a/>"), "<a/>");
    }
}
