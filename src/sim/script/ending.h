// How a command ended, and what of that is shown.
#pragma once

#include "model/outcome.h"

#include <optional>

namespace pelmsim {

struct ending {
    enum class showing { nothing, lines, verdict };

    std::optional<outcome> result = {}; // expectations look at it; without one, at that before
    showing shows = showing::nothing;

    static ending lines(std::string text) {
        while (text.ends_with('\n'))
            text.pop_back();
        ending made{outcome{}, showing::lines};
        made.result->shown = std::move(text);
        return made;
    }
    static ending verdict(outcome result) { return {std::move(result), showing::verdict}; }
};

} // namespace pelmsim
