// Programs that pelmsim starts: plugins, agents, whatever is to live in the same world.
#pragma once

#include "journal/journal.h"
#include "model/owners.h"
#include "wire/descriptor_limit.h"
#include "wire/loop.h"

#include <functional>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace pelmsim {

struct process {
    pid_t pid;
    std::string name;
    unique_fd output;
    std::string partial_line = {};
    std::optional<int> status = {}; // as from waitpid(), once it has ended
    bool asked_to_end = false;      // by SIGTERM, which it may die of
    bool waited_for = false;        // by a script
    bool hung_up_on = false;
    std::string report = {}; // the first line of one by a sanitizer or valgrind

    outcome end() const; // once it has ended

    // Why its end is a bad one; empty when it is not, or is still to come. An exit status says
    // nothing about that.
    std::string complaint() const;
};

class process_table {
public:
    process_table(event_loop& loop, event_journal& events, const descriptor_limit& limit);
    process_table(const process_table&) = delete;
    process_table& operator=(const process_table&) = delete;
    ~process_table(); // kills what still runs

    // Moves a process that is to become a program to where that runs; false with the reason in
    // errno.
    using mover = std::function<bool()>;

    // Starts a program in a process group of its own, by default under the name of its file. Throws
    // problem when it cannot be run.
    void start(const std::vector<std::string>& words, std::string name = {},
               const mover& enter = {});

    // The last one started under that name, if possible of those that are preferred; or null.
    process* find(const std::string& name, const std::function<bool(const process&)>& preferred);

    // Asks it to end, and kills it when it does not.
    void stop(process& which);

    // That program has been hung up on, and may end by itself.
    void hung_up_on(pid_t pid);

    // Ends all: those that were hung up on are given a moment first.
    void end_all();
    void kill_all();
    const std::list<process>& all() const { return all_; }

    // Takes in what the program of that process has printed by now. The terminal that it prints to
    // may take its time to say that there is something; what a plugin prints before it sends is to
    // be shown before, too.
    void read_output_of(pid_t pid);

    void reap(); // to be called when a child has ended

    // The last lines that they printed, and how many bytes came before those.
    const std::string& output() const { return output_; }
    std::size_t forgotten() const { return forgotten_; }

private:
    process* group_of(pid_t pid); // that a program is of; null when it was not started here
    void end_within(milliseconds limit, const std::function<bool(const process&)>& concerned);
    void has_ended(process& which, int status);
    void read_output(process& from);
    void take_output(process& from, std::string_view bytes);
    void print_line(process& from);

    event_loop& loop_;
    event_journal& events_;
    const descriptor_limit& limit_;
    std::list<process> all_;
    std::string output_;
    std::size_t forgotten_ = 0;
};

} // namespace pelmsim
