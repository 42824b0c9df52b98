// A plugin in a process of its own, which registers again whenever it is hung up on.
#pragma once

#include <memory>
#include <string>
#include <sys/types.h>

namespace stress {

class service;
class line;

// What the plugin has seen so far, in memory that it shares with the daemon.
struct ledger {
    long lives = 0;     // as an active plugin
    long callbacks = 0; // that were called
    long refused = 0;   // changes, by a callback
    long bad = 0;       // things that cannot be
};

class plugin_process {
public:
    plugin_process();
    plugin_process(const plugin_process&) = delete;
    plugin_process& operator=(const plugin_process&) = delete;
    ~plugin_process();

    // Waits until it has ended, which it does once the daemon's socket is gone. @return whether it ended well
    bool has_ended_well();

    const ledger& seen() const { return *seen_; }

    // Its memory in KiB, its descriptors, and its mappings.
    long private_kib() const;
    long descriptors() const;
    long mappings() const;

private:
    pid_t pid_ = -1;
    int leash_ = -1; // the plugin ends when this end of it is closed
    ledger* seen_;
};

// The messages by which the plugin registers and goes active.
void let_register(line& to);

// A life of the plugin, with each exchange that there is, from the registration to the end.
void live_whole_life(line& with);

} // namespace stress
