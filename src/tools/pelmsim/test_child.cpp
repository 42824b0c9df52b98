#include "test_child.h"

#include "journal/escaped.h"
#include "journal/event.h"
#include "model/problem.h"
#include "script/files.h"
#include "wire/loop.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace pelmsim {
namespace {

[[noreturn]] void give_up(const char* action) {
    throw problem(std::string(action) + ": " + std::strerror(errno));
}

void* shared_memory(std::size_t size) {
    void* const memory =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        give_up("cannot share memory");
    return memory;
}

} // namespace

void test_child::unmap::operator()(record* mapped) const noexcept {
    (void)munmap(mapped, sizeof *mapped);
}

test_child::test_child(std::string script, serving_options given)
    : options_(std::move(given)), record_(new (shared_memory(sizeof(record))) record) {
    options_.script = std::move(script);
    options_.counts = &record_->counts;
}

test_child::~test_child() {
    if (!is_running())
        return;
    (void)kill(pid_, SIGTERM);
    (void)waitpid(pid_, nullptr, 0);
}

void test_child::start(const signal_block& blocked) {
    output_.reset(memfd_create("transcript", MFD_CLOEXEC));
    if (!output_)
        give_up("cannot keep what a script prints");
    started_ = std::chrono::steady_clock::now();
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0)
        become_test(blocked, parent);
    if (pid_ < 0)
        give_up("cannot start a process");
}

// A process group of its own keeps Ctrl-C for the parent, which then asks each to end, once.
void test_child::become_test(const signal_block& blocked, pid_t parent) {
    (void)setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        std::_Exit(expectation_failed);
    const unique_fd nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    (void)dup2(nothing.get(), STDIN_FILENO);
    (void)dup2(output_.get(), STDOUT_FILENO);
    (void)dup2(output_.get(), STDERR_FILENO);
    blocked.put_back();
    std::exit(serve_script());
}

int test_child::serve_script() const {
    try {
        const int status = serve_in_private(options_);
        record_->is_complete = true;
        return status;
    } catch (const stopped&) {
        return expectation_failed;
    } catch (const std::exception& why) {
        const std::string mistake = escaped(why.what());
        (void)std::fprintf(stderr, "pelmsim: %s\n", mistake.c_str());
        mistake.copy(record_->mistake, sizeof record_->mistake - 1);
        return cannot_run;
    }
}

void test_child::stop() {
    if (!is_running())
        return;
    was_stopped_ = true;
    (void)kill(pid_, SIGTERM);
    (void)kill(pid_, SIGCONT); // for the plugin may have stopped it
}

void test_child::reap() {
    if (!is_running() || waitpid(pid_, &status_, WNOHANG) != pid_)
        return;
    has_ended_ = true;
    ended_ = std::chrono::steady_clock::now();
}

std::string test_child::complaint() const {
    const serving_counts& counts = record_->counts;
    if (was_stopped_)
        return "interrupted";
    if (record_->mistake[0] != '\0')
        return record_->mistake;
    if (!record_->is_complete || !WIFEXITED(status_) || WEXITSTATUS(status_) > expectation_failed)
        return "pelmsim ended: " + describe_status(status_);
    if (counts.failed > 0)
        return std::to_string(counts.failed) +
               (counts.failed == 1 ? " does not hold" : " do not hold");
    if (status_ != 0)
        return "interrupted";
    return counts.made == 0 ? "expects nothing" : "";
}

std::string test_child::transcript() const {
    return read_file("/proc/self/fd/" + std::to_string(output_.get()));
}

} // namespace pelmsim
