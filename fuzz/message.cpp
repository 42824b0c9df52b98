// What a peer may send, and whether what is built is what arrives.
#include "conf_plugin/message.h"

#include "conf_misc.h"
#include "conf_plugin/parser.h"
#include "frame.h"
#include "input.h"
#include "support/xml.h"

#include <cstring>
#include <deque>

using conf::unique_node;
using namespace std::string_view_literals;

namespace {

struct buffer {
    explicit buffer(std::string bytes) {
        conf_buffer_append(&handle, bytes.data(), static_cast<int>(bytes.size()));
    }
    buffer(const buffer&) = delete;
    buffer& operator=(const buffer&) = delete;
    ~buffer() { conf_buffer_destroy(handle); }
    std::string bytes() const { return {handle->buf, static_cast<std::size_t>(handle->used)}; }

    conf_buffer_t* handle = conf_buffer_create(0);
};

std::string dump(xmlNode* node) {
    const conf::unique_xml_buffer out{xmlBufferCreate()};
    if (node == nullptr)
        return "";
    require(conf::dump_node(out.get(), node) > 0);
    return reinterpret_cast<const char*>(xmlBufferContent(out.get()));
}

std::string frame(const std::string& body, u32_t length) {
    const msg_head_t head{CONF_MSG_MAGIC, length, 7, 0};
    return std::string(reinterpret_cast<const char*>(&head), sizeof head) + body;
}

// What stands in a connection's buffer: any bytes, any body, or one that is nearly a message, with a
// length that is right, nearly right, or any.
std::string arrived(input& in) {
    static constexpr std::string_view pieces[] = {
        "<result>",  "</result>",   "<error/>", "<error><code>-3</code>",
        "</error>",  "<id>12</id>", "<method>", "</method>",
        "<params>",  "</params>",   "&e;",      "&lt;",
        "<![CDATA[", "]]>",         "<!--",     "-->",
        "x",         "\xC3",        "<id/>",    "\n",
        "\0"sv};
    const auto kind = in.below(8);
    if (kind == 0)
        return in.rest();
    const std::string body =
        kind == 1 ? in.rest()
                  : "<!DOCTYPE r [<!ENTITY e '<a>x&#38;e;</a>'>]><r>" + in.text(pieces) + "</r>";
    const auto length = static_cast<u32_t>(body.size());
    if (in.below(4) != 0)
        return frame(body, length);
    const u32_t edges[] = {length, 0, 0x80000000, 0xFFFFFFFF, in.below(0x100000000)};
    return frame(body, in.pick(edges) + in.below(32) - 16);
}

void take_apart(xmlNode* root) {
    const char* method = nullptr;
    xmlNode *result = nullptr, *error = nullptr, *params = nullptr;
    const bool is_request = plugin_parse_rpc(root, &method, &params) == 0;
    require(is_request == (method != nullptr && params != nullptr));
    const bool is_answer = plugin_parse_reply(root, &result, &error) == 0;
    require(is_answer == ((result == nullptr) != (error == nullptr)));
    for (xmlNode* node : {root, result, error, params}) {
        (void)plugin_get_msgid(node);
        (void)plugin_get_reply_errcode(node);
        const char* message = plugin_get_reply_errmsg(node);
        require(message == nullptr || std::strlen(message) < 100000);
    }
}

void receive(input& in) {
    const std::string bytes = arrived(in);
    msg_head_t head{};
    std::memcpy(&head, bytes.data(), std::min(bytes.size(), sizeof head));
    const bool is_whole = bytes.size() >= sizeof head && bytes.size() - sizeof head >= head.length;
    buffer from(bytes);
    const conf::secret_node root{plugin_parse_message(&from.handle)};
    require(from.bytes() == bytes.substr(is_whole ? sizeof head + head.length : 0));
    require(is_whole || !root);
    if (!is_whole)
        return;
    buffer transport(bytes);
    static conf::body_parser parser;
    const conf::secret_node same{conf::take_message(transport.handle, &parser)};
    const std::string_view room(transport.handle->buf,
                                static_cast<std::size_t>(transport.handle->total));
    require(room.find_last_not_of('\0') + 1 <= transport.bytes().size()); // wiped behind the rest
    require(transport.bytes() == from.bytes() && dump(same.get()) == dump(root.get()));
    take_apart(root.get());
}

// Text that is not blank, since blank ones are dropped between elements.
std::string words(input& in) {
    static constexpr const char* pieces[] = {"word", " ",    "<",  "&",        ">",   "\"",
                                             "'",    "\r\n", "\t", "\xC3\xA9", "]]>", "&lt;"};
    return "x" + in.text(pieces);
}

unique_node any_tree(input& in, const char* name) {
    unique_node root{conf::new_element(name)};
    xmlNode* node = root.get();
    for (auto left = in.below(16); left > 0; --left) {
        const auto choice = in.below(4);
        const std::string text = words(in);
        if (choice == 0)
            xmlAddChild(node, xmlNewText(BAD_CAST text.c_str()));
        else if (choice == 1)
            xmlSetProp(node, BAD_CAST "attribute", BAD_CAST text.c_str());
        else if (choice == 2)
            node = conf::add_text(node, "deeper", text.c_str());
        else if (node != root.get())
            node = node->parent;
    }
    return root;
}

// A message on the wire, and what is to come out of it.
struct sent {
    bool is_request;
    u32_t id;
    std::string name, tree;
};

sent send(input& in, conf_buffer_t** wire) {
    sent result{in.flag(), in.below(0x100000000), words(in), ""};
    unique_node tree = any_tree(in, result.is_request ? "params" : in.flag() ? "result" : "error");
    result.tree = dump(tree.get());
    const unique_node root{
        result.is_request ? plugin_build_rpc_message(result.name.c_str(), tree.release(), result.id)
                          : plugin_build_reply_message(tree.release(), result.id)};
    require(conf::append_frame(wire, root.get(), 7) == conf::frame_fault::none);
    return result;
}

void exchange(input& in) {
    buffer wire("");
    std::deque<sent> messages;
    while (!in.is_used_up())
        messages.push_back(send(in, &wire.handle));
    for (const sent& message : messages) {
        const conf::secret_node root{plugin_parse_message(&wire.handle)};
        require(plugin_get_msgid(root.get()) == message.id);
        const char* method = "";
        xmlNode *tree = nullptr, *error = nullptr;
        if (message.is_request) {
            require(plugin_parse_rpc(root.get(), &method, &tree) == 0 && method == message.name);
        } else {
            require(plugin_parse_reply(root.get(), &tree, &error) == 0);
            tree = tree != nullptr ? tree : error;
        }
        require(dump(tree) == message.tree);
    }
    require(wire.bytes().empty());
}

void keep_quiet(void*, const char*, ...) {}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    xmlSetGenericErrorFunc(nullptr, keep_quiet); // or what is wrong with bodies fills the terminal
    for (input in(bytes, size); !in.is_used_up();)
        in.flag() ? receive(in) : exchange(in);
    require(reports() == 0);
    return 0;
}
