#include "daemon/explain.h"

#include "daemon/plugin.h"
#include "journal/escaped.h"
#include "journal/wording.h"
#include "wire/process_state.h"

namespace pelmsim {
namespace {

// What a plugin has asked since a request went out to it.
std::string explain_own_request(const own_request& own, moment sent) {
    const std::string asked = "it has asked " + escaped(own.subject) + " meanwhile, " +
                              time_in_words(own.at - sent) + " later";
    if (own.waits)
        return asked + ", which nobody answers: its library gives up after 30 s";
    return asked + "; if it did so before it saw the request, its library has dropped that";
}

std::string explain_open_request(const plugin& by, moment sent, bool may_be_joined) {
    if (!by.is_read())
        return escaped(by.label()) + " has not read the request";
    const auto& own = by.last_asked();
    if (own && own->waits && own->at < sent && own->quiet_since >= sent)
        return escaped(by.label()) + " was waiting for an answer to " + escaped(own->subject) +
               " already: its library drops what comes before that, and gives up after 30 s";
    std::string line = escaped(by.label()) +
                       " has read the request, so its callback has been open for " +
                       time_in_words(by.now() - sent) + " at most";
    if (own && own->at >= sent)
        return line + "\n" + explain_own_request(*own, sent);
    if (may_be_joined && read_process(by.pid()).waits_for_events)
        line += ";\nor the request has come together with an answer: then it lies unnoticed until "
                "econf_plugin_run() is called (see \"joined\")";
    return line;
}

} // namespace

std::string explain_plugin(const plugin& which) {
    std::string lines;
    if (const auto& own = which.last_asked(); own && own->waits)
        lines = "it has waited " + time_in_words(which.now() - own->at) + " for an answer to " +
                escaped(own->subject) + "; its library gives up after 30 s\n";
    else if (own)
        lines = "it has last asked " + escaped(own->subject) + ", " +
                time_in_words(which.now() - own->at) + " ago\n";
    return lines + which.describe_process();
}

std::string explain_time_out(const plugin& by, moment sent, milliseconds limit,
                             bool may_be_joined) {
    std::string lines =
        "the limit, " + time_in_words(limit) + ", is that of --timeout or the command timeout\n";
    if (!by.has_lost_its_process())
        lines += explain_open_request(by, sent, may_be_joined) + "\n";
    return lines + by.describe_process();
}

} // namespace pelmsim
