// Signals as events of the loop.
#pragma once

#include "script/processes.h"
#include "wire/loop.h"

#include <csignal>

namespace pelmsim {

// Keeps those that end the program, and those of children, from doing anything by themselves, as
// long as it lives.
class signal_block {
public:
    signal_block();
    signal_block(const signal_block&) = delete;
    signal_block& operator=(const signal_block&) = delete;
    ~signal_block();

    const sigset_t& signals() const { return signals_; }

    // For children that are to start as this program was started.
    void put_back() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t signals_;
    sigset_t before_;
};

// Stops the loop at those that end the program, and tells the programs when a child has ended.
class signal_events {
public:
    signal_events(const signal_block& blocked, event_loop& loop, process_table& programs);
    signal_events(const signal_events&) = delete;
    signal_events& operator=(const signal_events&) = delete;
    ~signal_events() { loop_.forget(arriving_.get()); }

    // From now on an interrupt, Ctrl-C, ends no more than the wait at hand.
    void let_interrupts_cancel() { interrupts_cancel_ = true; }

private:
    void take_all();

    event_loop& loop_;
    process_table& programs_;
    unique_fd arriving_;
    bool interrupts_cancel_ = false;
};

} // namespace pelmsim
