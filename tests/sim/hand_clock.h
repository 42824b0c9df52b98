// A clock that stands still until it is moved.
#pragma once

#include "journal/clock.h"

class hand_clock final : public pelmsim::clock_face {
public:
    pelmsim::moment now() const override { return now_; }
    pelmsim::wall_time wall() const override { return {}; }
    void move(pelmsim::milliseconds by) { now_ += by; }

private:
    pelmsim::moment now_{};
};
