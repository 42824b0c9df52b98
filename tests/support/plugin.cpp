#include "support/plugin.h"

#include <libxml/parser.h>

namespace {

char operation[] = "/o";
econf_config_cb_info_t configs[] = {{"/c", 1, callback}, {"/d", -5, nullptr}, {}};
econf_status_cb_info_t statuses[] = {{"/s", callback}, {}};
econf_operate_cb_info_t operations[] = {{operation, callback}, {}};

xmlDoc* document_of(const std::string& text) {
    return xmlReadDoc(BAD_CAST("<a>" + text + "</a>").c_str(), nullptr, nullptr, 0);
}

} // namespace

callback_script callbacks;

econf_plugin_subpub_info_t one_of_each{configs, statuses, operations, callback};

int next_id() {
    const conf_plugin_context_t* context = get_plugin_context();
    return context != nullptr ? context->rpc_id : 1;
}

std::string rpc(const std::string& method, const std::string& params, int id) {
    const std::string element = params.empty() ? "<params/>" : "<params>" + params + "</params>";
    return text("<rpc><method>%s</method>%s<id>%d</id></rpc>", method.c_str(), element.c_str(), id);
}

std::string reply(const std::string& outcome, int id) {
    return "<reply>" + outcome + text("<id>%d</id></reply>", id);
}

xmlNode* nodes_of(const std::string& text) {
    const conf::secret_doc doc{document_of(text)};
    return xmlCopyNodeList(xmlDocGetRootElement(doc.get())->children);
}

std::string text_of(xmlNode* first) {
    const conf::secret_xml_buffer text{xmlBufferCreate()};
    for (xmlNode* node = first; node != nullptr; node = node->next)
        xmlNodeDump(text.get(), nullptr, node, 0, 0);
    return reinterpret_cast<const char*>(xmlBufferContent(text.get()));
}

daemon_side::daemon_side() {
    observe([this](call which) { on_call(which); });
}

daemon_side::~daemon_side() {
    observe(nullptr);
    conf_plugin_service_disable(listener_.release());
}

void daemon_side::on_call(call which) {
    if (const int fd = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC); fd >= 0) {
        read();
        connection_.reset(fd);
    }
    if (connection_ && calls_left_ > 0 && --calls_left_ == 0)
        connection_.reset();
    if (which != call::epoll_wait || !is_awake_)
        return;
    const std::size_t known = received_.size();
    read();
    send(received_.size() > known ? std::exchange(answer_, {}) : "");
}

void daemon_side::send(const std::string& bytes) {
    output_ += bytes;
    const ssize_t count = ::send(connection_.get(), output_.data(), output_.size(), MSG_DONTWAIT);
    output_.erase(0, count > 0 ? static_cast<std::size_t>(count) : 0);
}

void daemon_side::read() {
    char piece[4096];
    ssize_t count = 0;
    while ((count = recv(connection_.get(), piece, sizeof piece, MSG_DONTWAIT)) > 0)
        input_.append(piece, static_cast<std::size_t>(count));
    if (count == 0)
        connection_.reset();
    for (msg_head_t head; input_.size() >= sizeof head;
         input_.erase(0, sizeof head + head.length)) {
        std::memcpy(&head, input_.data(), sizeof head);
        if (input_.size() < sizeof head + head.length)
            return;
        received_ += input_.substr(sizeof head, head.length);
    }
}

std::string daemon_side::received() {
    read();
    return std::exchange(received_, {});
}

std::string shown(const char* text) { return text != nullptr ? text : "(null)"; }
std::string shown(xmlNode** out) {
    EXPECT_EQ(*out, nullptr);
    if (callbacks.is_document) {
        callbacks.document.reset(document_of(callbacks.nodes));
        *out = xmlDocGetRootElement(callbacks.document.get())->children;
        xmlUnlinkNode(*out);
    } else if (!callbacks.nodes.empty()) {
        *out = nodes_of(callbacks.nodes);
    }
    return "out";
}

PluginTest::PluginTest() {
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)econf_plugin_config_debug(DBG_ALL, 1);
    (void)plugin_log();
    callbacks = {};
}

PluginTest::~PluginTest() {
    std::free(get_plugin_hooks());
    econf_plugin_close();
    del_plugin_from_hash();
    (void)econf_plugin_config_debug(DBG_NULL, 0);
}

void PluginTest::start(bool is_active) {
    daemon_.will_answer(answer("<result/>", 1));
    ASSERT_GE(econf_plugin_init("ntp", &one_of_each), 0);
    daemon_.will_answer(is_active ? answer("<result/>") : "");
    ASSERT_EQ(is_active ? econf_plugin_activate(ACTIVATE_WITH_NONE) : 0, 0);
    (void)daemon_.received();
    (void)plugin_log();
}

std::string PluginTest::log() {
    static const std::regex address("0x[0-9a-f]{6,}");
    static const std::regex noise("INFO.*|ERROR - Open default-pelmd-profile.*No such file.*");
    std::string result;
    for (const std::string& line : plugin_log())
        if (!std::regex_match(line, noise))
            result += (result.empty() ? "" : "; ") + line.substr(line.starts_with("ERROR") ? 8 : 0);
    return std::regex_replace(result, address, "P");
}
