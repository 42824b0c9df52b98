// What a run can leave on the machine: files in the three places, System V objects, processes.
#pragma once

#include <ctime>
#include <string>
#include <vector>

namespace pelm {

struct trace {
    std::string name; // a path, or the kind and the id of a System V object: "shm 5"
    std::time_t changed;
};

// All that is there, whoever made it, a directory before what lies in it.
std::vector<trace> list_traces();

// With what lies below it; a segment that somebody is attached to stays.
void remove_trace(const std::string& name);

// Makes what a private world would have; throws std::filesystem::filesystem_error.
void make_places();

// Whether a daemon or its plugins put it there.
bool is_a_daemons(const std::string& name);

// Whether somebody listens at a socket of this name.
bool is_listened_at(const std::string& path);

// Kills all processes that were started with this variable, written NAME=VALUE, and returns whether
// there were any.
bool end_processes_with(const std::string& variable);

} // namespace pelm
