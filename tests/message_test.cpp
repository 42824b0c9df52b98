// Bytes of any kind are tried in fuzz/message.cpp.
#include "conf_plugin.h"

#include "conf_debug.h"
#include "conf_misc.h"
#include "frame.h"
#include "support/plugin.h"

#include <cstdarg>
#include <libxml/parser.h>

using conf::unique_node;

namespace {

[[maybe_unused]] const int log_is_on = econf_plugin_config_debug(DBG_ALL, 1);

// Bytes as they arrive, or as they go out.
struct buffer {
    explicit buffer(std::string bytes) {
        conf_buffer_append(&handle, bytes.data(), static_cast<int>(bytes.size()));
    }
    ~buffer() { conf_buffer_destroy(handle); }
    std::string bytes() const { return {handle->buf, static_cast<std::size_t>(handle->used)}; }

    conf_buffer_t* handle = conf_buffer_create(0);
};

unique_node tree(const std::string& xml) { return unique_node{nodes_of(xml)}; }

using maker = xmlNode* (*)(xmlNode*, u32_t);
const maker build_rpc = [](xmlNode* params, u32_t id) {
    return plugin_build_rpc_message("a", params, id);
};

std::string dump(xmlNode* node) {
    const conf::unique_xml_buffer out{xmlBufferCreate()};
    return node && conf::dump_node(out.get(), node) > 0 ? text("%s", xmlBufferContent(out.get()))
                                                        : "";
}

// A printer of libxml2's, into a string.
[[gnu::format(printf, 2, 3)]] void append_printed(void* bytes, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char* piece = nullptr;
    ASSERT_GE(vasprintf(&piece, format, arguments), 0);
    va_end(arguments);
    *static_cast<std::string*>(bytes) += piece;
    std::free(piece);
}

} // namespace

TEST(Message, IsBuiltAndFramedToTheByte) {
    const std::string params = "<params>" + std::string(20000, 'x') + "</params>";
    const unique_node rpc{plugin_build_rpc_message("<&", tree(params).release(), 7)};
    const std::string body = "<rpc><method>&lt;&amp;</method>" + params + "<id>7</id></rpc>";
    buffer out("before");
    EXPECT_EQ(conf::append_frame(&out.handle, rpc.get(), 65535), conf::frame_fault::none);
    EXPECT_EQ(out.bytes(), "before" + frame_of(body, 65535));
    const unique_node reply{plugin_build_reply_message(tree("<result/>").release(), UINT32_MAX)};
    const std::string largest = std::to_string(static_cast<long>(UINT32_MAX)); // -1 on 32 bits
    EXPECT_EQ(dump(reply.get()), "<reply><result/><id>" + largest + "</id></reply>");
}

TEST(Message, IsWipedAndFreedWhenAPartIsMissing) {
    const secret_watch watch;
    xmlNode* child = tree("<a>" + secret + "</a>").release();
    EXPECT_EQ(plugin_build_rpc_message(nullptr, child, 7), nullptr);
    EXPECT_EQ(plugin_build_rpc_message("a", nullptr, 7), nullptr);
    EXPECT_EQ(plugin_build_reply_message(nullptr, 7), nullptr);
    EXPECT_EQ(watch.texts(), 0);
    EXPECT_THAT(plugin_log(), ElementsAre("ERROR - Build rpc <method = (null)> message failed.",
                                          "ERROR - Build rpc <method = a> message failed.",
                                          "ERROR - Build reply message failed."));
}

TEST(Message, IsCutOffTheFrontAndItsErrorsReachTheHost) {
    int errors = 0;
    xmlSetStructuredErrorFunc(&errors, [](void* count, auto*) { ++*static_cast<int*>(count); });
    std::string nested = "<a/>", deeper;
    for (int depth = 1; depth < 256; ++depth)
        nested = "<a>" + nested + "</a>";
    deeper = "<a><a>" + nested + "</a></a>";
    const std::pair<std::string, std::string> cases[] = {
        {"<a> <b> x </b>\n</a>", "<a><b> x </b></a>"},
        {"<n:a/>", "<n:a/>"}, // with an error that does not matter
        {"<!DOCTYPE a [<!ENTITY e 'x'><!ENTITY f '&e;'>]><a>&f;</a>", "<a>&f;</a>"},
        {"nonsense", ""},
        {"", ""},
        {"<a/><b/>", ""},
        {"<a>\xFF</a>", ""},
        {"<?xml version='1.0' encoding='ISO-8859-1'?><a>\xE9</a>", ""},
        {"<a>&e;</a>", ""},
        {nested, nested},
        {deeper, ""}};
    for (const auto& [body, expected] : traced(cases)) {
        buffer from("junk" + frame_of(body).substr(4) + frame_of("<next/>", 2));
        EXPECT_EQ(dump(unique_node{plugin_parse_message(&from.handle)}.get()), expected);
        EXPECT_EQ(from.bytes(), frame_of("<next/>", 2));
        EXPECT_EQ(from.handle->total, 4088);
        EXPECT_EQ(plugin_log().size(), expected == "");
    }
    EXPECT_GE(errors, 5);
    EXPECT_EQ(xmlStructuredErrorContext, &errors);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    conf_buffer_t* none = nullptr;
    EXPECT_EQ(plugin_parse_message(&none), nullptr);
    EXPECT_EQ(plugin_parse_message(nullptr), nullptr);
    const std::string whole = frame_of("<a/>");
    buffer cut(whole.substr(0, whole.size() - 1));
    EXPECT_EQ(plugin_parse_message(&cut.handle), nullptr);
    EXPECT_EQ(cut.bytes() + ">", whole);
    EXPECT_THAT(plugin_log(), ElementsAre());
}

TEST(Message, TakesNodesOutOfTheDocumentTheyWereParsedInto) {
    const std::string before[] = {"<rpc><method>a</method>", "<reply>"};
    const std::string behind[] = {"<id>7</id></rpc>", "<id>7</id></reply>"};
    const maker makers[] = {build_rpc, plugin_build_reply_message};
    for (const std::size_t i : {0u, 1u}) {
        xmlDoc* doc =
            xmlReadDoc(BAD_CAST "<r><p><q>abc</q></p><q>abc</q>t</r>", nullptr, nullptr, 0);
        xmlNode* root = xmlDocGetRootElement(doc);
        const unique_node message{makers[i](root->children, 7)};
        EXPECT_EQ(dump(message.get()), before[i] + "<p><q>abc</q></p>" + behind[i]);
        EXPECT_EQ(dump(root), "<r><q>abc</q>t</r>");
        const unique_node loose{
            makers[i](xmlNewDocNode(doc, nullptr, BAD_CAST "loose", nullptr), 7)};
        EXPECT_EQ(dump(loose.get()), before[i] + "<loose/>" + behind[i]);
        std::optional<fault> no_memory(std::in_place, call::xml, ENOMEM);
        EXPECT_EQ(makers[i](root->children, 7), nullptr);
        no_memory.reset();
        EXPECT_EQ(dump(root), "<r>t</r>");
        xmlUnlinkNode(root);
        const unique_node rest{makers[i](root, 7)};
        xmlFreeDoc(doc);
        EXPECT_EQ(dump(rest.get()), before[i] + "<r>t</r>" + behind[i]);
    }
    EXPECT_EQ(plugin_log().size(), 2u);
}

TEST(Message, LeansOnNothingOfTheTreeThatANodeComesFrom) {
    unique_node tree_without_document = tree("<a xmlns='urn:d' xmlns:p='urn:p'><b p:x='1'/></a>");
    xmlNode* b = tree_without_document.get()->children;
    const unique_node reply{plugin_build_reply_message(b, 7)};
    tree_without_document.reset();
    const std::string inner = "<b xmlns=\"urn:d\" xmlns:p=\"urn:p\" p:x=\"1\"/>";
    EXPECT_EQ(dump(reply.get()), "<reply>" + inner + "<id>7</id></reply>");
}

// What a host without a structured handler hears is what libxml2 tells it, byte for byte.
TEST(Message, KeepsNothingFromTheHostsPrinter) {
    std::string heard;
    xmlSetGenericErrorFunc(&heard, append_printed);
    const std::string body = "<a x='" + std::string(3000, 'x') + "'>&e;<b></a>";
    const auto size = static_cast<int>(body.size());
    xmlFreeDoc(xmlReadMemory(body.data(), size, nullptr, "utf-8", XML_PARSE_NOBLANKS));
    const std::string expected = std::exchange(heard, "");
    EXPECT_THAT(expected, testing::HasSubstr("Entity 'e' not defined"));
    buffer from(frame_of(body));
    EXPECT_EQ(plugin_parse_message(&from.handle), nullptr);
    EXPECT_EQ(heard, expected);
    EXPECT_EQ(xmlGenericErrorContext, &heard);
    xmlSetGenericErrorFunc(nullptr, nullptr);
    (void)plugin_log();
}

TEST(Message, IsTakenApartByNames) {
    constexpr const char* no_rpc = "ERROR - Invalid rpc message(without <method> or <params>).";
    constexpr const char* both = "ERROR - Invalid reply message(both <error> and <result>).";
    constexpr const char* neither = "ERROR - Invalid reply message(without <error> and <result>).";
    // A tree, and what it is as a request and as an answer.
    constexpr const char* cases[][3] = {
        {"<r><method>a</method><params/><method/></r>", no_rpc, neither},
        {"<r><params>1</params><params/><method>a</method></r>", "a<params/>", neither},
        {"<r xmlns:n='u'><n:method>a</n:method><n:params/></r>", "a<n:params/>", neither},
        {"<r><result>1</result><error2/><result>2</result></r>", no_rpc, "<result>2</result>"},
        {"<r><method>a</method><error/></r>", no_rpc, "<error/>"},
        {"<r><error/><params/><result/></r>", no_rpc, both}};
    const char* name;
    xmlNode *first, *second;
    for (const auto& [xml, request, answer] : traced(cases)) {
        const unique_node root = tree(xml);
        const bool is_request = plugin_parse_rpc(root.get(), &name, &second) == 0;
        EXPECT_EQ(is_request ? name + dump(second) : plugin_log().at(0), request);
        const bool is_answer = plugin_parse_reply(root.get(), &first, &second) == 0;
        EXPECT_EQ(is_answer ? dump(first) + dump(second) : plugin_log().at(0), answer);
    }
    EXPECT_EQ(plugin_parse_rpc(nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(plugin_parse_reply(nullptr, nullptr, nullptr), -1);
    EXPECT_THAT(
        plugin_log(),
        ElementsAre("ERROR - Input parameters error(rpc=(nil), method=(nil), params=(nil)).",
                    "ERROR - Input parameters error(reply=(nil), result=(nil), error=(nil))."));
}

TEST(Message, GivesNumbersAndTextOfTheFirstElement) {
    constexpr const char* cases[][2] = {
        {"<e><id>12abc</id><code> -3</code><message>m</message></e>", "12 -3 m"},
        {"<e><id/><code/><message/><id>5</id><code>5</code><message>m</message></e>", "0 -1 "},
        {"<e><code>x</code><id>-1</id><id>2</id><message>&lt;</message></e>", "4294967295 0 <"},
        {"<e><id>0x10</id><code>0x10</code></e>", "0 0 "},
        {"<e><id>4294967296</id></e>", sizeof(long) == 4 ? "2147483647 -1 " : "0 -1 "},
        {"<e><id>010</id><code>-010</code></e>", "10 -10 "},
        {"", "0 -1 "}};
    for (const auto& [xml, expected] : traced(cases)) {
        const unique_node root = tree(xml);
        const char* message = plugin_get_reply_errmsg(root.get());
        EXPECT_EQ(text("%u %d %s", plugin_get_msgid(root.get()),
                       plugin_get_reply_errcode(root.get()), message ? message : ""),
                  expected);
    }
}

TEST(Message, LosesItsTextsAndKeepsItsShape) {
    const unique_node root =
        tree("<r>1<x>2</x><a p='v'>three<b>4<!--c--><![CDATA[d]]></b></a>5<z>6</z></r>");
    xmlNode* from = root.get()->children->next->next;
    const xmlChar* three = from->children->content;
    conf::clean_xml_content(from);
    EXPECT_EQ(dump(root.get()),
              "<r>1<x>2</x><a p=\"v\"><b><!--c--><![CDATA[d]]></b></a><z></z></r>");
    EXPECT_EQ(std::string(three, three + 5), std::string(5, '\0'));
    xmlNode* deepest = root.get();
    for (int depth = 0; depth < 100000; ++depth)
        deepest = conf::add_text(deepest, "deep", "text");
    conf::clean_xml_content(root.get());
    EXPECT_STREQ(conf_get_node_content(deepest), "");
    conf::clean_xml_content(nullptr);
    xmlDoc* const doc = xmlReadDoc(BAD_CAST "<a>abc</a>", nullptr, nullptr, 0);
    conf::clean_xml_document(doc); // with the texts that lie in its dictionary
    EXPECT_EQ(dump(xmlDocGetRootElement(doc)), "<a></a>");
    xmlFreeDoc(doc);
}
