// The table of clients as it lies in shared memory; looks without taking part.
#pragma once

#include <conf_misc.h>
#include <string>
#include <sys/shm.h>
#include <vector>

namespace pelmsim {

struct client_table {
    std::string missing; // why there is none; empty when there is one
    shmid_ds segment{};
    int count = 0; // as the segment says
    std::vector<conf_cli_info_t> slots;
    std::string lock;         // the state of its semaphore, in words
    bool lock_is_bad = false; // missing or stuck
};

client_table read_client_table();

// Prints it and returns the exit status.
int show_clients();

} // namespace pelmsim
