// Callbacks do what they like with their input, and callers with what they were given.
#include "conf_plugin/context.h"
#include "conf_plugin/parser.h"
#include "support/plugin.h"

#include <libxml/dict.h>

using namespace conf;

namespace {

std::function<void(xmlNode* input, xmlNode** output)> act;

int operate(int, xmlNode* input, xmlNode** output) {
    act(input, output);
    return 0;
}

template <class Function> void for_each_unlinked(xmlNode* first, Function take) {
    for (xmlNode* next; first != nullptr; first = next) {
        next = first->next;
        xmlUnlinkNode(first);
        take(first);
    }
}

class Ownership : public PluginTest {
protected:
    Ownership() {
        start();
        context()->cbs[4] = callback_cast<econf_subpub_cb_t>(operate);
    }

    // The result of an operation with this input.
    std::string result_of(const std::string& input) {
        daemon_.send(frame_of(rpc(
            "publish", "<type>operate</type><callback>4</callback><info>" + input + "</info>", 9)));
        econf_plugin_run();
        const std::string answered = daemon_.received();
        const std::string head = "<reply><result>", tail = "</result><id>9</id></reply>";
        EXPECT_TRUE(answered.starts_with(head) && answered.ends_with(tail)) << answered;
        return answered.substr(head.size(), answered.size() - head.size() - tail.size());
    }

    // In turn: what needs no document, and what goes by way of one.
    const std::string inputs_[3] = {
        R"(<a xmlns:p="urn:p" p:x="1">10<p:b/></a><!--c--><d><![CDATA[<x>]]></d><?q?>tail)",
        R"(<a xml:lang="en"><b xml:space="preserve">text</b></a>)", R"(<nn>1</nn><nn>1</nn>)"};
};

} // namespace

TEST_F(Ownership, LetsACallbackHandBackCopiesOrTheNodesThemselves) {
    for (const std::string& input : traced(inputs_)) {
        act = [](xmlNode* first, xmlNode** output) { *output = xmlCopyNodeList(first); };
        EXPECT_EQ(result_of(input), input);
        act = [](xmlNode* first, xmlNode** output) {
            for_each_unlinked(first, [output](xmlNode* node) {
                *output == nullptr ? *output = node : xmlAddSibling(*output, node);
            });
        };
        EXPECT_EQ(result_of(input), input);
        act = [](xmlNode* first, xmlNode** output) {
            *output = xmlNewNode(nullptr, BAD_CAST "own");
            for_each_unlinked(first, [output](xmlNode* node) { xmlAddChild(*output, node); });
        };
        EXPECT_EQ(result_of(input), "<own>" + input + "</own>");
    }
}

TEST_F(Ownership, LetsACallbackKeepOrFreeItsInput) {
    for (const std::string& input : traced(inputs_)) {
        const unique_node kept{xmlNewNode(nullptr, BAD_CAST "kept")};
        act = [&kept](xmlNode* first, xmlNode**) {
            for_each_unlinked(first, [&kept](xmlNode* node) { xmlAddChild(kept.get(), node); });
        };
        EXPECT_EQ(result_of(input), "<ok/>");
        act = [](xmlNode* first, xmlNode**) { for_each_unlinked(first, xmlFreeNode); };
        EXPECT_EQ(result_of(input), "<ok/>");
        EXPECT_EQ(text_of(kept.get()), "<kept>" + input + "</kept>");
    }
}

TEST_F(Ownership, LetsACallbackHangItsInputIntoADocumentOfItsOwn) {
    for (const std::string& input : traced(inputs_)) {
        const secret_doc doc{xmlNewDoc(BAD_CAST "1.0")};
        doc.get()->dict = xmlDictCreate();
        xmlNode* const root = xmlNewDocNode(doc.get(), nullptr, BAD_CAST "r", nullptr);
        xmlDocSetRootElement(doc.get(), root);
        act = [root](xmlNode* first, xmlNode**) {
            for_each_unlinked(first, [root](xmlNode* node) { xmlAddChild(root, node); });
        };
        EXPECT_EQ(result_of(input), "<ok/>");
        EXPECT_EQ(text_of(root), "<r>" + input + "</r>");
    }
}

TEST_F(Ownership, LetsACallbackChangeItsInput) {
    act = [](xmlNode* first, xmlNode** output) {
        xmlNodeSetContent(first, BAD_CAST "new &amp; text");
        xmlSetProp(first, BAD_CAST "x", BAD_CAST "v");
        xmlNodeSetName(first, BAD_CAST "renamed");
        xmlAddNextSibling(first, xmlNewNode(nullptr, BAD_CAST "more"));
        *output = xmlCopyNode(first, 1);
    };
    EXPECT_EQ(result_of("<a x='1'>10<b/></a>"), "<renamed x=\"v\">new &amp; text</renamed>");
}

TEST_F(Ownership, GivesTheCallerNodesThatLeanOnNothing) {
    const auto cases = table<3>(R"(
        <reply><result>              | <a>1<b/></a>t          | <a>1<b/></a>t
        <reply><result>              | <a xmlns="o"><b/></a>  | <a xmlns="o"><b/></a>
        <reply><result>              | <a xml:lang="en"/>     | <a xml:lang="en"/>
        <reply xmlns="r"><result>    | <a>1<b/></a>t          | <a xmlns="r">1<b/></a>t
        <reply><result xmlns:p="u:"> | <p:a p:x="1"/>         | <p:a xmlns:p="u:" p:x="1"/>)");
    for (const auto& [head, data, expected] : traced(cases)) {
        const std::string tail = text("</data></result><id>%d</id></reply>", next_id());
        daemon_.will_answer(frame_of(head + "<data>" + data + tail));
        xmlNode* nodes = nullptr;
        EXPECT_EQ(econf_plugin_pull(0, "/a", &nodes), 0);
        const unique_node_list owned{nodes};
        EXPECT_EQ(text_of(nodes), expected);
        for (xmlNode* node = nodes; node != nullptr; node = node->next)
            EXPECT_EQ(node->parent, nullptr);
    }
}

TEST_F(Ownership, EndsForAnErrorsTextWithTheNextOneAndWithTheContext) {
    econf_plugin_close();
    const block_watch watch;
    start();
    econf_plugin_error(1, "one");
    const int with_text = watch.kept();
    econf_plugin_error(2, "two");
    EXPECT_EQ(watch.kept(), with_text);
    econf_plugin_close();
    EXPECT_EQ(watch.kept(), 0);
}

TEST_F(Ownership, EndsForTheParserWithTheContext) {
    const auto blocks = [] {
        const block_watch watch;
        char body[] = "<a/>";
        const secret_node root{message_parser()->parse(body, sizeof body - 1)};
        return watch.count();
    };
    const int with_kept_parser = blocks();
    EXPECT_EQ(blocks(), with_kept_parser);
    econf_plugin_close();
    EXPECT_GT(blocks(), with_kept_parser);
    message_parser()->forget();
}
