// A script that runs as a test: in a process of its own, which does what "pelmsim run" does.
#pragma once

#include "model/owners.h"
#include "serving.h"
#include "signals.h"

#include <chrono>
#include <memory>
#include <string>
#include <sys/types.h>

namespace pelmsim {

class test_child {
public:
    test_child(std::string script, serving_options given);
    test_child(const test_child&) = delete;
    test_child& operator=(const test_child&) = delete;
    ~test_child(); // ends it when it still runs

    void start(const signal_block& blocked); // throws problem
    void stop();                             // lets it end as by Ctrl-C: reap() will tell
    void reap();                             // to be called when a child has ended

    bool has_started() const { return pid_ > 0; }
    bool has_ended() const { return has_ended_; }
    bool is_running() const { return has_started() && !has_ended_; }

    // Of one that has ended: why it has failed, or nothing.
    std::string complaint() const;
    std::string transcript() const;
    void forget_transcript() { output_.reset(); } // no descriptor is kept for it
    int expectations() const { return record_->counts.made; }
    int warnings() const { return record_->counts.warnings; }
    std::chrono::duration<double> took() const { return ended_ - started_; }

    const std::string& script() const { return options_.script; }

private:
    // Lies in memory that the child shares, and that no program has which it starts. So nothing
    // that such a program does can pass for a result.
    struct record {
        serving_counts counts;
        bool is_complete = false; // the script and the end of everybody
        char mistake[2000] = "";  // that nothing more was done behind
    };
    struct unmap {
        void operator()(record* mapped) const noexcept;
    };

    [[noreturn]] void become_test(const signal_block& blocked, pid_t parent);
    int serve_script() const;

    serving_options options_;
    std::unique_ptr<record, unmap> record_;
    unique_fd output_;
    pid_t pid_ = 0;
    int status_ = 0; // as from waitpid()
    bool has_ended_ = false;
    bool was_stopped_ = false;
    std::chrono::steady_clock::time_point started_;
    std::chrono::steady_clock::time_point ended_;
};

} // namespace pelmsim
