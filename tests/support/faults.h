// Failures of the system, on demand. What the library under test and the test program call
// themselves can fail; what the C library and libxml2 do inside stays as it is.
#pragma once

#include <functional>

// A failing xml stands for libxml2's allocations, all others for the function of that name.
// clang-format off
enum class call {
    bind, calloc, connect, epoll_create1, epoll_ctl, epoll_wait, fcntl, fopen, fstat, getpwuid,
    listen, malloc, mmap, mremap, munmap, open, pthread_mutex_init, read, semctl, semget, semop,
    setsockopt, shmat, shmget, socket, strdup, write, xml, xmlAddChild, count
};
// clang-format on

// While it lives, one use of a call fails with error, after skip uses that go well; 0 leaves errno as
// it is. Of two at a time for the same call the later one counts. A failure that never happened
// fails the test, unless the test has asked for it.
class fault {
public:
    fault(call which, int error, int skip = 0, int line = __builtin_LINE());
    fault(fault&&) = delete;
    ~fault();

    // Whether the failure has happened.
    bool hit() const;

    // For the call: whether this use of it is the one that fails, with errno set.
    bool happens();

private:
    call which_;
    int error_;
    int skip_;
    int line_;
    bool hit_ = false;
    mutable bool is_judged_ = false;
};

// From here on, tells watch of each use of a call before it happens, until watch is null again. Nobody
// waits meanwhile: an epoll_wait that finds no event has run into its limit at once, since whatever
// the other side does it does in watch.
void observe(std::function<void(call)> watch);

// The limit of the last epoll_wait.
int last_wait_ms();

// Lets the first use of a call fail, then the second, until run gets by without a failure. It is
// given the fault, and may ask it afterwards whether this run was the one without.
template <class Run> void fail_each(call which, int error, Run run) {
    for (int skip = 0;; ++skip) {
        const fault one(which, error, skip);
        run(one);
        if (!one.hit())
            return;
    }
}
