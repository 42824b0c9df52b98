#include "test.h"

#include "in_place.h"
#include "journal/escaped.h"
#include "model/problem.h"
#include "terminal.h"
#include "test_child.h"
#include "test_scripts.h"

#include <algorithm>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <set>

namespace pelmsim {
namespace {

const char* plural(int count) { return count == 1 ? "" : "s"; }

// Prints each line as soon as those before it are there.
class test_lines {
public:
    explicit test_lines(const std::deque<test_child>& tests) {
        for (const test_child& each : tests)
            columns_ = std::max(columns_, static_cast<int>(escaped(each.script()).size()));
    }

    void show(test_child& test) {
        const std::string why = test.complaint();
        const std::string note = why.empty() ? warnings_of(test) : why;
        std::printf("%s  %-*s  %3d expectation%-1s  %6.2f s%s%s\n", mark(why.empty()), columns_,
                    escaped(test.script()).c_str(), test.expectations(),
                    plural(test.expectations()), test.took().count(), note.empty() ? "" : "  ",
                    note.c_str());
        if (!why.empty())
            show_transcript(test.transcript());
        test.forget_transcript();
        (void)std::fflush(stdout); // before another child has a copy of what is left
        expectations_ += test.expectations();
        ++(why.empty() ? passed_ : failed_);
    }

    void conclude(std::size_t scripts, std::chrono::duration<double> took) const {
        const int all = static_cast<int>(scripts);
        std::printf("%d script%s: %d ok, %d failed", all, plural(all), passed_, failed_);
        if (const int left = all - passed_ - failed_; left > 0)
            std::printf(", %d not run", left);
        std::printf("; %d expectation%s in %.2f s\n", expectations_, plural(expectations_),
                    took.count());
    }

    int passed() const { return passed_; }
    int count() const { return passed_ + failed_; }

private:
    const char* mark(bool good) const {
        if (!colours_)
            return good ? "ok    " : "FAILED";
        return good ? "\033[32mok\033[0m    " : "\033[31mFAILED\033[0m";
    }

    static std::string warnings_of(const test_child& test) {
        const int count = test.warnings();
        if (count == 0)
            return {};
        return std::to_string(count) + " warning" + plural(count) + ": see --strict";
    }

    static void show_transcript(const std::string& text) {
        for (std::size_t begin = 0; begin < text.size();) {
            const std::size_t end = std::min(text.find('\n', begin), text.size());
            std::printf("    %.*s\n", static_cast<int>(end - begin), text.data() + begin);
            begin = end + 1;
        }
    }

    const bool colours_ = terminal::has_colours();
    int columns_ = 0;
    int passed_ = 0;
    int failed_ = 0;
    int expectations_ = 0;
};

class test_run {
public:
    test_run(std::deque<test_child>& tests, int jobs) : tests_(tests), jobs_(jobs), lines_(tests) {
        (void)std::signal(SIGCHLD, SIG_DFL); // whoever started this may have chosen not to be told
    }

    int run() {
        const auto begin = std::chrono::steady_clock::now();
        for (start_more(); count_running() > 0; start_more()) {
            take_signal();
            while (next_has_ended())
                lines_.show(tests_[static_cast<std::size_t>(lines_.count())]);
        }
        lines_.conclude(tests_.size(), std::chrono::steady_clock::now() - begin);
        return lines_.passed() == static_cast<int>(tests_.size()) ? 0 : expectation_failed;
    }

private:
    std::ptrdiff_t count_running() const {
        return std::ranges::count_if(tests_, &test_child::is_running);
    }

    bool next_has_ended() const {
        const auto next = static_cast<std::size_t>(lines_.count());
        return next < tests_.size() && tests_[next].has_ended();
    }

    void start_more() {
        for (test_child& each : tests_)
            if (!interrupted_ && !each.has_started() && count_running() < jobs_)
                each.start(blocked_);
    }

    void take_signal() {
        int number = 0;
        (void)sigwait(&blocked_.signals(), &number);
        interrupted_ = interrupted_ || number != SIGCHLD;
        for (test_child& each : tests_)
            if (number == SIGCHLD)
                each.reap();
            else
                each.stop();
    }

    std::deque<test_child>& tests_;
    const int jobs_;
    const signal_block blocked_;
    test_lines lines_;
    bool interrupted_ = false;
};

serving_options options_of(const std::string& script, const test_options& given) {
    serving_options options = given.each;
    options.show_commands = true;
    options.colours = terminal::has_colours();
    if (const std::string beside = configuration_beside(script); !beside.empty())
        options.config = beside;
    if (!given.each.record.file.empty())
        options.record.file = recording_in(given.each.record.file, script);
    return options;
}

// Two of one name would write into one file.
void prepare_folder(const std::string& folder, const std::vector<std::string>& scripts) {
    std::set<std::string> files;
    for (const std::string& script : scripts)
        if (const std::string file = recording_in(folder, script); !files.insert(file).second)
            throw problem("more than one script would be recorded to " + file);
    std::error_code why;
    std::filesystem::create_directories(folder, why);
    if (why)
        throw problem("cannot make the folder " + folder + ": " + why.message());
}

} // namespace

int run_tests(const test_options& given) {
    const std::vector<std::string> scripts = find_scripts(given.scripts);
    if (given.each.here && scripts.size() > 1)
        throw problem("--here takes one script: each needs a private world of its own");
    if (!given.each.config.empty() && !std::filesystem::exists(given.each.config))
        throw problem("there is no file " + given.each.config);
    if (!given.each.record.file.empty())
        prepare_folder(given.each.record.file, scripts);
    std::deque<test_child> tests;
    for (const std::string& script : scripts)
        tests.emplace_back(script, options_of(script, given));
    // Those inside of a run in place share its places.
    return test_run(tests, pelm::is_inside_a_run() ? 1 : given.jobs).run();
}

} // namespace pelmsim
