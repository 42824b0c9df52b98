#include "script/warnings.h"

#include "script/answer_check.h"
#include "script/registration_check.h"
#include "wire/xml_fault.h"

namespace pelmsim {
namespace {

bool is_registration(const event& what) {
    return what.kind == event_kind::request && what.who.is == role::plugin &&
           what.way == direction::from_peer && what.method == "register";
}

// What keeps it from being XML. A notification may be meant as any text.
std::string fault_of(const event& what) {
    if (what.why != cause::no_xml)
        return {};
    if (what.kind == event_kind::unreadable)
        return what.text;
    return what.text.starts_with('<') ? xml_fault(what.text) : "";
}

std::string what_is_lost(const event& what) {
    return what.kind == event_kind::notification ? "a notification goes to no agent"
                                                 : "a frame that it sent is dropped";
}

} // namespace

warnings::warnings(event_loop& loop, event_journal& events, const store& trees,
                   process_watch::holders_of holders)
    : events_(events),
      trees_(trees),
      processes_(loop, std::move(holders),
                 [this](const peer& who, const warning& what) { give(who, what); }),
      log_(loop, [this](const peer& who, const warning& what) { give(who, what); }) {
    events_.add(*this);
}

void warnings::take(const event& what) {
    if (is_registration(what) && what.who.name.empty()) { // it is refused
        event named = what;
        named.who.name = child_text(what.body, "plugin-name");
        return take_named(named);
    }
    take_named(what);
}

void warnings::take_named(const event& what) {
    processes_.take(what);
    log_.take(what);
    if (const std::string fault = fault_of(what); !fault.empty())
        return give(what.who, {cause::not_allowed, "",
                               what_is_lost(what) + ", for XML does not allow " + fault +
                                   ": send UTF-8 without control characters, and write "
                                   "\"&amp;\" for an ampersand"});
    if (is_registration(what))
        for (const warning& each : check_registration(what.body, trees_.current))
            give(what.who, each);
    if (what.kind == event_kind::request && what.way == direction::to_peer)
        if (const auto found = check_answer(what))
            give(what.who, *found);
}

void warnings::give(const peer& who, const warning& what) {
    const std::string key =
        who.label() + '\n' + std::to_string(static_cast<int>(what.why)) + '\n' + what.path;
    if (is_full() || !known_.insert(key).second)
        return;
    given_.push_back({who.label(), what.text});
    events_.report({.kind = event_kind::warning,
                    .who = who,
                    .path = what.path,
                    .why = what.why,
                    .text = what.text});
}

} // namespace pelmsim
