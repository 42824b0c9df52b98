#include "support/faults.h"

#include "support/memory.h"
#include "support/reports.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <libxml/tree.h>
#include <libxml/xmlmemory.h>
#include <malloc.h>
#include <pthread.h>
#include <pwd.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

fault* pending[static_cast<int>(call::count)]; // the fault that is to come, for each call

fault*& pending_of(call which) { return pending[static_cast<int>(which)]; }

std::function<void(call)> watcher;
bool is_watching = false; // what the watcher does itself is not told to it
int wait_limit_ms = 0;
std::size_t mapped_bytes = 0; // by the mmap or mremap under way

int limited(int wait_ms) {
    wait_limit_ms = wait_ms;
    return watcher ? 0 : wait_ms;
}

std::size_t mapping(std::size_t size) { return mapped_bytes = size; }

std::size_t growing(std::size_t size, std::size_t new_size) {
    EXPECT_GT(new_size, size) << "where it shrinks, munmap is for it";
    mapped_bytes = new_size - size;
    return new_size;
}

// Told before the call, since the pages are gone behind it.
std::size_t leaving(const void* start, std::size_t size) {
    pages_go(start, size);
    return size;
}

bool fails(call which) {
    if (watcher && !std::exchange(is_watching, true)) {
        const int saved = errno;
        watcher(which);
        errno = saved;
        is_watching = false;
    }
    fault* const next = pending_of(which);
    return next != nullptr && next->happens();
}

int made(call which, int result) {
    if (which == call::epoll_create1 || which == call::open || which == call::socket)
        descriptor_came(result);
    return result;
}
FILE* made(call, FILE* file) {
    if (file != nullptr)
        descriptor_came(fileno(file));
    return file;
}
void* made(call which, void* memory) {
    if (which == call::malloc)
        block_came(memory);
    if ((which == call::mmap || which == call::mremap) && memory != MAP_FAILED)
        pages_came(static_cast<std::ptrdiff_t>(mapped_bytes));
    return memory;
}
template <class Result> Result made(call, Result result) { return result; }

// std::malloc and std::free are wrapped in here, too.
void* xml_malloc(std::size_t size) { return fails(call::xml) ? nullptr : std::malloc(size); }

void* xml_realloc(void* memory, std::size_t size) {
    void* const block = xml_malloc(size);
    if (block != nullptr && memory != nullptr) {
        std::memcpy(block, memory, std::min(size, malloc_usable_size(memory)));
        block_is_forgotten(memory);
        std::free(memory);
    }
    return block;
}

char* xml_strdup(const char* text) {
    void* const copy = xml_malloc(std::strlen(text) + 1);
    return copy != nullptr ? std::strcpy(static_cast<char*>(copy), text) : nullptr;
}

// Before main, since libxml2 must not have allocated anything by then.
[[maybe_unused]] const int xml_is_ours =
    xmlMemSetup(std::free, xml_malloc, xml_realloc, xml_strdup);

} // namespace

fault::fault(call which, int error, int skip, int line)
    : which_(which), error_(error), skip_(skip), line_(line) {
    pending_of(which_) = this;
}

fault::~fault() {
    if (pending_of(which_) == this)
        pending_of(which_) = nullptr;
    EXPECT_TRUE(hit_ || is_judged_) << "the fault of line " << line_ << " never happened";
}

bool fault::hit() const {
    is_judged_ = true;
    return hit_;
}

bool fault::happens() {
    if (hit_ || skip_-- > 0)
        return false;
    hit_ = true;
    if (error_ != 0)
        errno = error_;
    return true;
}

void observe(std::function<void(call)> watch) { watcher = std::move(watch); }

int last_wait_ms() { return wait_limit_ms; }

// The linker sends each reference to NAME here (--wrap, set up from the lines that begin with
// WRAP or WATCH), and __real_NAME to where it led before.
#define WRAP_AS(name, symbol, result, failed, parameters, ...)                          \
    extern "C" decltype(name) real_##name __asm__("__real_" #symbol);                   \
    extern "C" result wrap_##name parameters __asm__("__wrap_" #symbol);                \
    result wrap_##name parameters {                                                     \
        return fails(call::name) ? failed : made(call::name, real_##name(__VA_ARGS__)); \
    }
#define WRAP(name, ...) WRAP_AS(name, name, __VA_ARGS__)
// As above, for a function that has another name where its times and sizes are wider than a long.
#if defined(__USE_TIME_BITS64) && __LONG_WIDTH__ == 32
#define WRAP_WIDE(name, wide, ...) WRAP_AS(name, wide, __VA_ARGS__)
#else
#define WRAP_WIDE(name, wide, ...) WRAP_AS(name, name, __VA_ARGS__)
#endif
// As above, for what never fails: only looked at.
#define WATCH(name, result, parameters, look, ...) \
    extern "C" decltype(name) __real_##name;       \
    extern "C" result __wrap_##name parameters;    \
    result __wrap_##name parameters {              \
        look;                                      \
        return __real_##name(__VA_ARGS__);         \
    }

// clang-format off
WRAP(bind, int, -1, (int fd, const sockaddr* address, socklen_t size), fd, address, size)
WRAP(calloc, void*, nullptr, (std::size_t count, std::size_t size), count, size)
WRAP(connect, int, -1, (int fd, const sockaddr* address, socklen_t size), fd, address, size)
WRAP(epoll_create1, int, -1, (int flags), flags)
WRAP(epoll_ctl, int, -1, (int epoll, int action, int fd, epoll_event* event), epoll, action, fd, event)
WRAP(epoll_wait, int, -1, (int epoll, epoll_event* events, int room, int wait_ms), epoll, events, room, limited(wait_ms))
WRAP_WIDE(fcntl, __fcntl_time64, int, -1, (int fd, int action, long argument), fd, action, argument)
WRAP_WIDE(fopen, fopen64, FILE*, nullptr, (const char* path, const char* mode), path, mode)
WRAP_WIDE(fstat, __fstat64_time64, int, -1, (int fd, struct stat* status), fd, status)
WRAP(getpwuid, passwd*, nullptr, (uid_t uid), uid)
WRAP(listen, int, -1, (int fd, int backlog), fd, backlog)
WRAP(malloc, void*, nullptr, (std::size_t size), size)
WRAP_WIDE(mmap, mmap64, void*, MAP_FAILED, (void* at, std::size_t size, int protection, int flags, int fd, off_t offset), at, mapping(size), protection, flags, fd, offset)
WRAP(mremap, void*, MAP_FAILED, (void* old, std::size_t size, std::size_t new_size, int flags), old, size, growing(size, new_size), flags)
WRAP(munmap, int, -1, (void* start, std::size_t size), start, leaving(start, size))
WRAP_WIDE(open, open64, int, -1, (const char* path, int flags, mode_t mode), path, flags, mode)
WRAP(pthread_mutex_init, int, errno, (pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes), mutex, attributes)
WRAP(read, ssize_t, -1, (int fd, void* bytes, std::size_t size), fd, bytes, size)
WRAP_WIDE(semctl, __semctl64, int, -1, (int id, int index, int action, void* argument), id, index, action, argument)
WRAP(semget, int, -1, (key_t key, int count, int flags), key, count, flags)
WRAP(semop, int, -1, (int id, sembuf* operations, std::size_t count), id, operations, count)
WRAP_WIDE(setsockopt, __setsockopt64, int, -1, (int fd, int level, int option, const void* value, socklen_t size), fd, level, option, value, size)
WRAP(shmat, void*, MAP_FAILED, (int id, const void* at, int flags), id, at, flags)
WRAP(shmget, int, -1, (key_t key, std::size_t size, int flags), key, size, flags)
WRAP(socket, int, -1, (int family, int type, int protocol), family, type, protocol)
WRAP(strdup, char*, nullptr, (const char* text), text)
WRAP(write, ssize_t, -1, (int fd, const void* bytes, std::size_t size), fd, bytes, size)
WRAP(xmlAddChild, xmlNode*, nullptr, (xmlNode* parent, xmlNode* child), parent, child)
WATCH(free, void, (void* block), block_goes(block), block)
