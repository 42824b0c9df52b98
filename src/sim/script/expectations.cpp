#include "script/expectations.h"

#include <algorithm>

namespace pelmsim {

void expectations::check(finding what) {
    failures_ += what.holds ? 0 : 1;
    count_ += what.holds && what.is_beginning ? 0 : 1;
    finding_ = what;
    events_.report({.kind = event_kind::expectation,
                    .text = std::move(what.expected),
                    .place = place_,
                    .got = std::move(what.got),
                    .difference = std::move(what.difference),
                    .good = what.holds});
}

recovery_result* expectations::recovery_of(const std::string& plugin) {
    const auto found = std::find_if(recoveries_.rbegin(), recoveries_.rend(),
                                    [&](const auto& each) { return each.plugin == plugin; });
    return found == recoveries_.rend() ? nullptr : &*found;
}

void expectations::begin_step() {
    for (recovery_result& each : recoveries_)
        each.is_of_step = false;
}

void expectations::check_recoveries() {
    place_.clear();
    for (const recovery_result& each : std::exchange(recoveries_, {}))
        if (!each.is_looked_at && each.how.result != verdict::unheard && !each.how.is_ok())
            check({false, "recovery " + each.plugin + " ok", each.how.describe()});
}

} // namespace pelmsim
