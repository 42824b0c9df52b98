#include "notifier.h"

#include "problem.h"
#include "xml.h"

#include <cerrno>
#include <conf_plugin.h>
#include <cstring>
#include <sys/socket.h>

namespace pelmsim {

void notifier::open() {
    socket_ = conf_plugin_notifier_enable();
    if (socket_ < 0)
        throw problem(std::string("cannot open ") + g_conf_notifier_socket + ": " +
                      std::strerror(errno));
    loop_.watch(socket_, held_ ? 0 : POLLIN, [this](short) { on_ready(); });
}

void notifier::close() {
    if (socket_ < 0)
        return;
    loop_.forget(socket_);
    conf_plugin_notifier_disable(std::exchange(socket_, -1));
}

void notifier::on_ready() {
    const ssize_t size = recv(socket_, nullptr, 0, MSG_PEEK | MSG_TRUNC);
    if (size < 0)
        return;
    std::string text(static_cast<std::size_t>(size), '\0');
    (void)recv(socket_, text.data(), text.size(), 0);
    if (text.ends_with('\0'))
        text.pop_back();
    take(text);
}

void notifier::take(const std::string& text) {
    received_.push_back(text);
    unique_nodes data;
    try {
        data = parse_nodes(text);
    } catch (const problem&) {
        out_.report({"notifier", '<', text, "no well-formed XML", false});
        return;
    }
    const bool is_element = data != nullptr && data->type == XML_ELEMENT_NODE;
    const std::size_t agents = is_element ? pass_on(data.get()) : 0;
    out_.report({"notifier", '<', std::to_string(text.size()) + " bytes",
                 agents == 0 ? "" : "passed on to " + std::to_string(agents)});
    if (data != nullptr)
        out_.block(pretty(data.get()));
}

} // namespace pelmsim
