#include "script/expectations.h"

namespace pelmsim {

void expectations::check(finding what) {
    failures_ += what.holds ? 0 : 1;
    events_.report({.kind = event_kind::expectation,
                    .text = std::move(what.expected),
                    .place = place_,
                    .got = std::move(what.got),
                    .good = what.holds});
}

} // namespace pelmsim
