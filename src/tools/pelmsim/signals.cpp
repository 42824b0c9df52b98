#include "signals.h"

#include <sys/signalfd.h>

namespace pelmsim {

signal_block::signal_block() {
    sigemptyset(&signals_);
    for (const int each : {SIGINT, SIGTERM, SIGHUP, SIGCHLD})
        sigaddset(&signals_, each);
    sigprocmask(SIG_BLOCK, &signals_, &before_);
}

signal_block::~signal_block() {
    const timespec at_once{};
    while (sigtimedwait(&signals_, nullptr, &at_once) > 0) {
        // it came after the last wait: there is nothing left that it could end
    }
    sigprocmask(SIG_SETMASK, &before_, nullptr);
}

signal_events::signal_events(const signal_block& blocked, event_loop& loop, process_table& programs)
    : loop_(loop),
      programs_(programs),
      arriving_(signalfd(-1, &blocked.signals(), SFD_CLOEXEC | SFD_NONBLOCK)) {
    loop_.watch(arriving_.get(), POLLIN, [this](short) { take_all(); });
}

void signal_events::take_all() {
    signalfd_siginfo signal{};
    while (read(arriving_.get(), &signal, sizeof signal) == sizeof signal)
        if (signal.ssi_signo == SIGCHLD)
            programs_.reap();
        else if (signal.ssi_signo == SIGINT && interrupts_cancel_)
            loop_.cancel();
        else
            loop_.stop();
}

} // namespace pelmsim
