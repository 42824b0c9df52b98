#include "support/faults.h"

#include "support/memory.h"
#include "support/reports.h"

#include <algorithm>
#include <cJSON.h>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <libxml/tree.h>
#include <libxml/xmlmemory.h>
#include <malloc.h>
#include <pthread.h>
#include <pwd.h>
#include <sys/epoll.h>
#include <sys/ipc.h>
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
std::function<bool(call)> decider;
bool is_watching = false; // what these two do themselves is not told to them
int wait_limit_ms = 0;
std::size_t transfer_limit = SIZE_MAX;
std::size_t mapped_bytes = 0;   // by the mmap or mremap under way
std::size_t wanted = 0;         // by the xml or json under way
char** composed_text = nullptr; // by the vasprintf under way

int limited(int wait_ms) {
    wait_limit_ms = wait_ms;
    return watcher ? 0 : wait_ms;
}

std::size_t portion(std::size_t size) { return std::min(size, transfer_limit); }

char** composing(char** text) { return composed_text = text; }

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

bool is_decided(call which) {
    if (std::exchange(is_watching, true))
        return false;
    const int saved = errno;
    if (watcher)
        watcher(which);
    errno = saved;
    const bool fails = decider && decider(which);
    is_watching = false;
    return fails;
}

bool fails(call which) {
    if (is_decided(which))
        return true;
    fault* const next = pending_of(which);
    return next != nullptr && next->happens();
}

int made(call which, int result) {
    if (which == call::epoll_create1 || which == call::open || which == call::socket)
        descriptor_came(result);
    if (which == call::vasprintf && result >= 0)
        block_came(*composed_text, false);
    return result;
}
FILE* made(call, FILE* file) {
    if (file != nullptr)
        descriptor_came(fileno(file));
    return file;
}
void* made(call which, void* memory) {
    if (which == call::malloc || which == call::calloc)
        block_came(memory, true);
    if ((which == call::mmap || which == call::mremap) && memory != MAP_FAILED)
        pages_came(static_cast<std::ptrdiff_t>(mapped_bytes));
    return memory;
}
char* made(call, char* copy) {
    block_came(copy, false);
    return copy;
}
template <class Result> Result made(call, Result result) { return result; }

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

void judge(std::function<bool(call)> decide) { decider = std::move(decide); }

void limit_transfers(std::size_t bytes) { transfer_limit = bytes; }

const char* name_of(call which) {
    static constexpr const char* names[] = {
#define NAME_TEXT(name) #name,
        EACH_CALL(NAME_TEXT)
#undef NAME_TEXT
    };
    return names[static_cast<int>(which)];
}

std::size_t wanted_bytes() { return wanted; }

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
WRAP(chown, int, -1, (const char* path, uid_t user, gid_t group), path, user, group)
WRAP(connect, int, -1, (int fd, const sockaddr* address, socklen_t size), fd, address, size)
WRAP(epoll_create1, int, -1, (int flags), flags)
WRAP(epoll_ctl, int, -1, (int epoll, int action, int fd, epoll_event* event), epoll, action, fd, event)
WRAP(epoll_wait, int, -1, (int epoll, epoll_event* events, int room, int wait_ms), epoll, events, room, limited(wait_ms))
WRAP_WIDE(fcntl, __fcntl_time64, int, -1, (int fd, int action, long argument), fd, action, argument)
WRAP_WIDE(fopen, fopen64, FILE*, nullptr, (const char* path, const char* mode), path, mode)
WRAP_WIDE(fstat, __fstat64_time64, int, -1, (int fd, struct stat* status), fd, status)
WRAP(ftok, key_t, -1, (const char* path, int project), path, project)
WRAP(getgrnam, group*, nullptr, (const char* name), name)
WRAP(getpwuid, passwd*, nullptr, (uid_t uid), uid)
WRAP(listen, int, -1, (int fd, int backlog), fd, backlog)
WRAP(malloc, void*, nullptr, (std::size_t size), size)
WRAP_WIDE(mmap, mmap64, void*, MAP_FAILED, (void* at, std::size_t size, int protection, int flags, int fd, off_t offset), at, mapping(size), protection, flags, fd, offset)
WRAP(mremap, void*, MAP_FAILED, (void* old, std::size_t size, std::size_t new_size, int flags), old, size, growing(size, new_size), flags)
WRAP(munmap, int, -1, (void* start, std::size_t size), start, leaving(start, size))
WRAP_WIDE(open, open64, int, -1, (const char* path, int flags, mode_t mode), path, flags, mode)
WRAP(pthread_mutex_init, int, errno, (pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes), mutex, attributes)
WRAP(read, ssize_t, -1, (int fd, void* bytes, std::size_t size), fd, bytes, portion(size))
WRAP_WIDE(semctl, __semctl64, int, -1, (int id, int index, int action, void* argument), id, index, action, argument)
WRAP(semget, int, -1, (key_t key, int count, int flags), key, count, flags)
WRAP(semop, int, -1, (int id, sembuf* operations, std::size_t count), id, operations, count)
WRAP(sendto, ssize_t, -1, (int fd, const void* bytes, std::size_t size, int flags, const sockaddr* to, socklen_t to_size), fd, bytes, size, flags, to, to_size)
WRAP_WIDE(setsockopt, __setsockopt64, int, -1, (int fd, int level, int option, const void* value, socklen_t size), fd, level, option, value, size)
WRAP(setvbuf, int, -1, (FILE* file, char* area, int how, std::size_t size), file, area, how, size)
WRAP(shmat, void*, MAP_FAILED, (int id, const void* at, int flags), id, at, flags)
WRAP_WIDE(shmctl, __shmctl64, int, -1, (int id, int action, shmid_ds* segment), id, action, segment)
WRAP(shmget, int, -1, (key_t key, std::size_t size, int flags), key, size, flags)
WRAP(socket, int, -1, (int family, int type, int protocol), family, type, protocol)
WRAP_WIDE(stat, __stat64_time64, int, -1, (const char* path, struct stat* status), path, status)
WRAP(strdup, char*, nullptr, (const char* text), text)
WRAP(system, int, -1, (const char* command), command)
WRAP(unlink, int, -1, (const char* path), path)
WRAP(vasprintf, int, -1, (char** text, const char* format, va_list arguments), composing(text), format, arguments)
WRAP(write, ssize_t, -1, (int fd, const void* bytes, std::size_t size), fd, bytes, portion(size))
WRAP(xmlAddChild, xmlNode*, nullptr, (xmlNode* parent, xmlNode* child), parent, child)
WATCH(free, void, (void* block), block_goes(block), block)
// clang-format on

namespace {

void* take_block(call which, std::size_t size) {
    wanted = size;
    return fails(which) ? nullptr : made(call::malloc, real_malloc(size));
}

void* json_malloc(std::size_t size) { return take_block(call::json, size); }

void* xml_malloc(std::size_t size) { return take_block(call::xml, size); }

void* xml_realloc(void* memory, std::size_t size) {
    void* const block = xml_malloc(size);
    if (block != nullptr && memory != nullptr) {
        std::memcpy(block, memory, std::min(size, malloc_usable_size(memory)));
        block_is_forgotten(memory);
        std::free(memory); // wrapped in here, too
    }
    return block;
}

char* xml_strdup(const char* text) {
    void* const copy = xml_malloc(std::strlen(text) + 1);
    return copy != nullptr ? std::strcpy(static_cast<char*>(copy), text) : nullptr;
}

// Before main, since libxml2 must not have allocated anything by then.
[[maybe_unused]] const int allocations_are_ours = [] {
    cJSON_Hooks hooks = {json_malloc, std::free};
    cJSON_InitHooks(&hooks);
    return xmlMemSetup(std::free, xml_malloc, xml_realloc, xml_strdup);
}();

} // namespace
