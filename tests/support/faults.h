// Failures of the system, on demand. What the library under test and the test program call
// themselves can fail; what the C library and libxml2 do inside stays as it is.
#pragma once

#include <cstddef>
#include <functional>

// A failing xml stands for libxml2's allocations, json for cJSON's, all others for the function of that
// name.
// clang-format off
#define EACH_CALL(X) \
    X(bind) X(calloc) X(chown) X(connect) X(epoll_create1) X(epoll_ctl) X(epoll_wait) X(fcntl) \
    X(fopen) X(fstat) X(ftok) X(getgrnam) X(getpwuid) X(json) X(listen) X(malloc) X(mmap) X(mremap) \
    X(munmap) X(open) X(pthread_mutex_init) X(read) X(semctl) X(semget) X(semop) X(sendto) \
    X(setsockopt) X(setvbuf) X(shmat) X(shmctl) X(shmget) X(socket) X(stat) X(strdup) X(system) \
    X(unlink) X(vasprintf) X(write) X(xml) X(xmlAddChild)
#define CALL_NAME(name) name,
enum class call { EACH_CALL(CALL_NAME) count };
#undef CALL_NAME
// clang-format on
const char* name_of(call which);

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

// From here on, asks decide at each use of a call whether it fails, with errno set by decide; not at those
// of watch. Null ends it.
void judge(std::function<bool(call)> decide);

// From here on, read and write move no more than so many bytes at a time.
void limit_transfers(std::size_t bytes);

// How much memory the xml or json under way is to give.
std::size_t wanted_bytes();

// The limit of the last epoll_wait.
int last_wait_ms();
