// Where everything that happens is reported, and handed on to those who print or keep it.
#pragma once

#include "journal/event.h"

#include <vector>

namespace pelmsim {

class event_sink {
public:
    virtual void take(const event& what) = 0;

    // From now on, whether frames are wanted, by those who leave them out otherwise.
    virtual void show_frames(bool) {}

protected:
    ~event_sink() = default;
};

class event_journal {
public:
    explicit event_journal(const clock_face& time) : time_(time) {}
    event_journal(const event_journal&) = delete;
    event_journal& operator=(const event_journal&) = delete;

    // From now on it hears of everything, behind those that were added before. It has to stay, or
    // to be removed.
    void add(event_sink& sink) { sinks_.push_back(&sink); }

    void remove(event_sink& sink) { std::erase(sinks_, &sink); }

    void show_frames(bool wanted) const {
        for (event_sink* each : sinks_)
            each->show_frames(wanted);
    }

    void report(event what) const {
        what.time = time_.wall();
        for (event_sink* each : sinks_)
            each->take(what);
    }

private:
    const clock_face& time_;
    std::vector<event_sink*> sinks_;
};

} // namespace pelmsim
