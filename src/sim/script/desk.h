// The commands of the prompt and of scripts.
#pragma once

#include "daemon/publisher.h"
#include "journal/text_sink.h"
#include "script/line_reader.h"
#include "script/processes.h"

#include <filesystem>

namespace pelmsim {

class desk {
public:
    desk(event_loop& loop, event_journal& events, text_sink& text, store& trees, daemon& host,
         process_table& processes)
        : loop_(loop),
          events_(events),
          text_(text),
          trees_(trees),
          daemon_(host),
          processes_(processes),
          publisher_(host, trees) {}

    // Runs one line; a line that is no command throws problem.
    void run(const std::string& line);

    // Runs a script to its end; a line that is no command throws problem, with its place.
    void run_script(const std::string& name, const std::string& text);

    // Serves until there is something to do.
    void serve_until(const std::function<bool()>& done);

    bool has_quit() const { return quit_; }
    int failed_expectations() const { return failures_; }

    // Words that may stand in a line: commands, names of plugins and their paths.
    std::vector<std::string> vocabulary() const;

private:
    struct command {
        const char* name;
        const char* arguments;
        const char* purpose;
        void (desk::*run)(line_reader&);
    };
    static const command commands[];

    void agents(line_reader&);
    void answer(line_reader&);
    void echo(line_reader&);
    void expect(line_reader&);
    void help(line_reader&);
    void hold(line_reader&);
    void kickoff(line_reader&);
    void load(line_reader&);
    void log(line_reader&);
    void notifications(line_reader&);
    void notify(line_reader&);
    void operate(line_reader&);
    void plugins(line_reader&);
    void publish(line_reader&);
    void quit(line_reader&);
    void release(line_reader&);
    void remove(line_reader&);
    void restart(line_reader&);
    void send(line_reader&);
    void set(line_reader&);
    void show(line_reader&);
    void start(line_reader&);
    void status(line_reader&);
    void stop(line_reader&);
    void timeout(line_reader&);
    void trace(line_reader&);
    void wait(line_reader&);

    void show_lines(std::string lines);
    void told(outcome result); // what a command of publishing came to
    process& process_named(const std::string& name);
    bool wait_for(const std::function<bool()>& done, milliseconds limit);
    std::function<bool()> condition(const std::string& what, line_reader& words);
    void check(bool holds, const std::string& expected, const std::string& got);

    event_loop& loop_;
    event_journal& events_;
    text_sink& text_; // has the switch of "trace"
    store& trees_;
    daemon& daemon_;
    process_table& processes_;
    publisher publisher_;

    outcome last_;
    bool quit_ = false;
    int failures_ = 0;
    std::string place_; // of the line that runs: "demo.sim:12: ", or empty at the prompt
    std::filesystem::path directory_; // that files are looked for in
    std::size_t output_seen_ = 0;
    std::size_t notifications_seen_ = 0;
};

} // namespace pelmsim
