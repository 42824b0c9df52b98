#include "daemon/notifier.h"

#include "model/problem.h"
#include "model/xml.h"
#include "wire/xml_excess.h"

#include <conf_plugin.h>

namespace pelmsim {
namespace {

// How many are kept, and how much of them.
constexpr std::size_t most_kept = 4096;
constexpr std::size_t most_bytes = std::size_t{16} * 1024 * 1024;

peer here() { return {.is = role::notifier}; }

} // namespace

notifier::notifier(event_loop& loop, event_journal& events, agent_table& agents)
    : events_(events),
      agents_(agents),
      at_(conf_plugin_notifier_enable, conf_plugin_notifier_disable, g_conf_notifier_socket),
      arriving_(loop, *this) {}

void notifier::open() {
    at_.open();
    arriving_.start(at_.socket());
}

void notifier::close() {
    if (!at_.is_open())
        return;
    arriving_.stop();
    at_.close();
}

void notifier::failed(const char* why) {
    events_.report({.kind = event_kind::unreadable,
                    .who = here(),
                    .way = direction::from_peer,
                    .why = cause::failure,
                    .text = why});
}

void notifier::keep(const std::string& text) {
    kept_.push_back(text);
    kept_bytes_ += text.size();
    while (kept_.size() > most_kept || kept_bytes_ > most_bytes) {
        if (dropped_++ == 0)
            events_.report({.kind = event_kind::dropped, .who = here()});
        kept_bytes_ -= kept_.front().size();
        kept_.pop_front();
    }
}

void notifier::take(std::string text) {
    if (text.ends_with('\0'))
        text.pop_back();
    keep(text);
    event what{.kind = event_kind::notification,
               .who = here(),
               .way = direction::from_peer,
               .text = std::move(text)};
    if (what.got = xml_excess(what.text); !what.got.empty()) {
        what.why = cause::excess;
        return events_.report(std::move(what));
    }
    unique_nodes data;
    try {
        data = parse_nodes(what.text);
    } catch (const problem&) {
        what.why = cause::no_xml;
        return events_.report(std::move(what));
    }
    const bool is_element = data != nullptr && data->type == XML_ELEMENT_NODE;
    what.count = is_element ? agents_.subscribed() : 0;
    what.body = data.get();
    events_.report(std::move(what));
    if (is_element)
        (void)agents_.notify(data.get());
}

} // namespace pelmsim
