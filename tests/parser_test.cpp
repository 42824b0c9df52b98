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

} // namespace

TEST_F(Parser, RefusesLargeBodiesAsACopyWould) {
    const std::string large(XML_MAX_LOOKUP_LIMIT, 'x'); // NOLINT(*-string-constructor): so large
    const std::string near_the_end(300, 'y');
    const std::string bodies[] = {"<a>" + large + "</a>",
                                  "<a>" + large + "<b>" + near_the_end + "</b></a>",
                                  "<a>" + large + "<!--<b>" + near_the_end + "--></a>",
                                  "<a>" + large + "<?i <b>" + near_the_end + "?></a>",
                                  "<a>" + large + "<![CDATA[<b>" + near_the_end + "]]></a>"};
    for (const std::string& body : traced(bodies))
        EXPECT_TRUE(parse(body) == parse_anew(body));
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
