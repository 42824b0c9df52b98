// What a run can leave on the machine: files in the three places, System V objects, processes.
#pragma once

#include <ctime>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

namespace pelm {

struct trace {
    std::string name; // a path, or the kind and the id of a System V object: "shm 5"
    std::time_t changed;
};

// All that is there, whoever made it, a directory before what lies in it.
std::vector<trace> list_traces();

// Whether it, or anything that lies below it, has changed after that time.
bool has_changed_since(const trace& what, std::time_t time);

// With what lies below it; a segment that somebody is attached to stays. Says what hinders it.
void remove_trace(const std::string& name);

// Makes what a private world would have; throws std::filesystem::filesystem_error.
void make_places();

// Whether a daemon or its plugins put it there.
bool is_a_daemons(const std::string& name);

// Whether somebody listens at a socket of this name.
bool is_listened_at(const std::string& path);

std::set<pid_t> children_of_this_process();

// Kills all processes that were started with this variable, written NAME=VALUE, and all children
// but those that are spared. Returns whether there were any.
bool end_processes_of(const std::string& variable, const std::set<pid_t>& spared);

} // namespace pelm
