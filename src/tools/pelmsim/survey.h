// Looks at the machine as it is, without taking part.
#pragma once

#include <conf_misc.h>
#include <string>
#include <sys/shm.h>
#include <vector>

namespace pelmsim {

// The table of clients as it lies in shared memory.
struct client_table {
    std::string missing; // why there is none; empty when there is one
    shmid_ds segment{};
    int count = 0; // as the segment says
    std::vector<conf_cli_info_t> slots;
    std::string lock;         // the state of its semaphore, in words
    bool lock_is_bad = false; // missing or stuck
};

client_table read_client_table();

// "812 (pelmd)", or "812 (gone)".
std::string describe_process(pid_t pid);

// Both print what they find and return the exit status.
int show_clients();
int examine_machine();

extern const char* const profile_path;

} // namespace pelmsim
