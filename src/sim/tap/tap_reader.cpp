#include "tap/tap_reader.h"

#include "model/problem.h"
#include "model/xml.h"
#include "tap/agent_conversation.h"
#include "tap/plugin_conversation.h"
#include "wire/xml_excess.h"

#include <limits>

namespace pelmsim {
namespace {

constexpr std::size_t most_at_once = 64; // before anything else has its turn

} // namespace

tap_reader::tap_reader(event_loop& loop, event_journal& events, passage_queue& from,
                       std::function<void(pid_t)> heard_from)
    : loop_(loop), events_(events), from_(from), heard_from_(std::move(heard_from)) {
    loop_.watch(from_.arrival(), POLLIN, [this](short) { read_some(most_at_once); });
}

tap_reader::~tap_reader() { loop_.forget(from_.arrival()); }

void tap_reader::finish() { read_some(std::numeric_limits<std::size_t>::max()); }

// Nothing more is taken over before all that was has been read.
void tap_reader::read_some(std::size_t most) {
    for (; most > 0; --most) {
        if (unread_.empty())
            unread_ = from_.take();
        if (unread_.empty())
            break;
        const passage next = std::move(unread_.front());
        unread_.pop_front();
        read_guarded(next);
    }
    if (!unread_.empty())
        from_.announce();
}

// What goes wrong with one connection, if only memory, ends the reading of that one alone.
void tap_reader::read_guarded(const passage& next) {
    try {
        read_one(next);
    } catch (const std::exception& why) {
        open_.erase(next.connection);
        events_.report(
            {.kind = event_kind::unreadable,
             .who = next.who,
             .way = next.way,
             .why = cause::failure,
             .text = std::string("a connection is no longer read along: ") + why.what()});
    }
}

void tap_reader::read_one(const passage& next) {
    if (next.what == passing::opened)
        return begin(next);
    if (next.what == passing::datagram)
        return notified(next);
    if (next.what == passing::told)
        return events_.report(next.said);
    const auto found = open_.find(next.connection);
    if (found == open_.end())
        return;
    heard_from_(found->second.pid);
    if (next.what == passing::bytes)
        return found->second.its->passed(next.way, next.bytes, next.lost, next.at);
    const open_one ended = std::move(found->second);
    open_.erase(found);
    ended.its->end(next.by_daemon);
}

void tap_reader::begin(const passage& next) {
    open_one made{.pid = next.who.pid, .its = {}};
    if (next.who.is == role::plugin)
        made.its = std::make_unique<plugin_conversation>(events_, room_, made.pid);
    else
        made.its = std::make_unique<agent_conversation>(events_, room_, made.pid);
    made.its->begin();
    open_.emplace(next.connection, std::move(made));
}

void tap_reader::notified(const passage& next) {
    if (next.lost > 0)
        events_.report({.kind = event_kind::unreadable,
                        .who = {.is = role::notifier},
                        .way = direction::from_peer,
                        .why = cause::failure,
                        .text = std::to_string(next.lost) +
                                " notifications that nobody has read along: more passes than can "
                                "be told of"});
    std::string text = next.bytes;
    if (text.ends_with('\0'))
        text.pop_back();
    event what{.kind = event_kind::notification,
               .who = {.is = role::notifier},
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
    }
    what.body = data.get();
    events_.report(std::move(what));
}

} // namespace pelmsim
