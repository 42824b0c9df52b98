#include "daemon/notifier.h"

#include "model/problem.h"
#include "model/xml.h"

#include <cerrno>
#include <conf_plugin.h>
#include <cstring>
#include <sys/socket.h>

namespace pelmsim {
namespace {

// How many are kept, and how much of them.
constexpr std::size_t most_kept = 4096;
constexpr std::size_t most_bytes = std::size_t{16} * 1024 * 1024;

constexpr milliseconds until_next_try{200};

const peer here{.is = role::notifier};

} // namespace

void notifier::open() {
    socket_ = conf_plugin_notifier_enable();
    if (socket_ < 0)
        throw problem(std::string("cannot open ") + g_conf_notifier_socket + ": " +
                      std::strerror(errno));
    loop_.watch(socket_, 0, [this](short) {
        try {
            on_ready();
        } catch (const std::exception& why) { // it may lie there still
            loop_.change(socket_, 0);
            next_try_ = loop_.after(until_next_try, [this] { listen(); });
            events_.report({.kind = event_kind::unreadable,
                            .who = here,
                            .way = direction::from_peer,
                            .why = cause::failure,
                            .text = why.what()});
        }
    });
    listen();
}

void notifier::listen() { loop_.change(socket_, held_ ? 0 : POLLIN); }

void notifier::close() {
    if (socket_ < 0)
        return;
    next_try_.cancel();
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

void notifier::keep(const std::string& text) {
    kept_.push_back(text);
    kept_bytes_ += text.size();
    while (kept_.size() > most_kept || kept_bytes_ > most_bytes) {
        if (dropped_++ == 0)
            events_.report({.kind = event_kind::dropped, .who = here});
        kept_bytes_ -= kept_.front().size();
        kept_.pop_front();
    }
}

void notifier::take(const std::string& text) {
    keep(text);
    event what{
        .kind = event_kind::notification, .who = here, .way = direction::from_peer, .text = text};
    unique_nodes data;
    try {
        data = parse_nodes(text);
    } catch (const problem&) {
        what.why = cause::no_xml;
        return events_.report(what);
    }
    if (data != nullptr && data->type == XML_ELEMENT_NODE)
        what.count = pass_on(data.get());
    what.body = data.get();
    events_.report(what);
}

} // namespace pelmsim
