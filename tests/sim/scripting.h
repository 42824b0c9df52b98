// A session without anybody connected, and lines that it runs.
#pragma once

#include "journal/text_sink.h"
#include "model/problem.h"
#include "script/runner.h"

#include "hand_clock.h"

#include <gmock/gmock.h>

namespace pelmsim {

class Scripting : public ::testing::Test {
protected:
    Scripting() { events_.add(text_); }

    // What a script prints, and at its end why it is given up.
    std::string run(const std::string& script) {
        printed_.clear();
        try {
            lines_.run_script("net.sim", script);
        } catch (const problem& why) {
            printed_ += why.what();
        }
        return printed_;
    }

    bool holds(const std::string& expectation) {
        const int before = on_.expected.failures();
        lines_.run("expect " + expectation);
        return on_.expected.failures() == before;
    }

    hand_clock time_;
    const descriptor_limit descriptors_;
    std::string printed_;
    text_sink text_{[this](const std::string& lines) { printed_ += lines; }, false};
    event_loop loop_{time_};
    event_journal events_{time_};
    session on_{loop_, events_, descriptors_};
    runner lines_{on_};
};

} // namespace pelmsim
