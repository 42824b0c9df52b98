// A clock that stands still until it is moved, or moves on whenever it is looked at.
#pragma once

#include "journal/clock.h"

class hand_clock final : public pelmsim::clock_face {
public:
    pelmsim::moment now() const override { return now_ += pace_; }
    pelmsim::wall_time wall() const override { return {}; }
    void move(pelmsim::milliseconds by) { now_ += by; }
    void run(pelmsim::milliseconds pace) { pace_ = pace; }

private:
    mutable pelmsim::moment now_{};
    pelmsim::milliseconds pace_{};
};
