// What a process of the machine is doing, as /proc tells it.
#pragma once

#include "journal/clock.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace pelmsim {

// The files of /proc/PID that tell of it; without those that cannot be read.
struct process_files {
    std::optional<std::string> stat = {};
    std::optional<std::string> status = {};
    std::optional<std::string> system_call = {}; // the file syscall
    std::optional<std::string> wait_channel = {};
    bool calls_are_ours = true; // its numbers of system calls are this program's
};

struct process_state {
    char letter = 0; // of its first thread, as "ps" shows it; 0 when there is no such process
    std::string name = {};
    int threads = 1;
    pid_t tracer = 0;           // 0 when no debugger is at work on it
    std::string where = {};     // what it sleeps in; empty when that is not known
    bool waits_for_events = {}; // it sleeps in a call that waits for descriptors
    milliseconds worked{};      // of processor time, in all
    bool is_ended_by_sigpipe{}; // which it neither ignores nor catches nor blocks

    // Its first thread may end before the others.
    bool lives() const { return letter != 0 && ((letter != 'Z' && letter != 'X') || threads > 1); }

    // "asleep in read", "running", "gone".
    std::string describe() const;
};

process_state parse_process(const process_files& files);

process_state read_process(pid_t pid);

bool has_children(pid_t pid); // false where the system does not tell

// "process 812 (ntp)" and what it is, behind such a link: " is asleep in read".
std::string describe_state(pid_t pid, const char* link = " is ");

} // namespace pelmsim
