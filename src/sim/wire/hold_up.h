// For how long faults have held a peer up.
#pragma once

#include "journal/clock.h"

#include <algorithm>
#include <optional>

namespace pelmsim {

class hold_up {
public:
    // From now on for so long, or until it ends; behind one that lasts.
    void begin(moment now, std::optional<milliseconds> time) {
        if (now >= until_) {
            past_ += until_ - from_;
            from_ = until_ = now;
        }
        until_ = time && until_ != moment::max() ? until_ + *time : moment::max();
    }
    void end(moment now) { until_ = std::min(until_, now); }

    moment::duration total(moment now) const { return past_ + (std::min(now, until_) - from_); }

private:
    moment::duration past_{};
    moment from_;
    moment until_;
};

} // namespace pelmsim
