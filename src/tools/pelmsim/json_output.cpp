#include "json_output.h"

#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace pelmsim {

json_output::json_output(event_loop& loop, milliseconds patience)
    : loop_(loop),
      lines_(loop, STDOUT_FILENO, patience, [this](const std::string& why) { lost(why); }),
      sink_([this](const std::string& line) { lines_.write(line); }) {
    (void)std::signal(SIGPIPE, SIG_IGN); // a reader that goes away is noticed without it
}

bool json_output::finish() {
    lines_.finish();
    return !lines_.is_lost();
}

// Nobody is left to hear of it but who reads the standard error output.
void json_output::lost(const std::string& why) const {
    (void)std::fprintf(stderr, "pelmsim: the events are lost: %s\n", why.c_str());
    if (stops_loop_)
        loop_.stop();
}

} // namespace pelmsim
