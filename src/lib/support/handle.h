// Owners of what must be given back.
#pragma once

#include <cstdlib>
#include <sys/stat.h>
#include <utility>

namespace conf {

// Owns one C handle. Traits give its type, its empty value and how to let it go.
template <class Traits> class unique_handle {
public:
    using type = typename Traits::type;

    explicit unique_handle(type value = Traits::empty) noexcept : value_(value) {}
    unique_handle(unique_handle&& other) noexcept : value_(other.release()) {}
    unique_handle& operator=(unique_handle&& other) noexcept {
        reset(other.release());
        return *this;
    }
    unique_handle(const unique_handle&) = delete;
    unique_handle& operator=(const unique_handle&) = delete;
    // Closes by value: a handle whose address is never taken stays in a register. Out of line it would
    // cost 1.3 KiB of the device's flash.
    [[gnu::always_inline]] ~unique_handle() { close(value_); }

    type get() const noexcept { return value_; }
    explicit operator bool() const noexcept { return value_ != Traits::empty; }
    [[nodiscard]] type release() noexcept { return std::exchange(value_, Traits::empty); }
    void reset(type value = Traits::empty) noexcept { close(std::exchange(value_, value)); }

    // For calls that hand over a new value through a pointer; this must be empty then.
    type* out() noexcept { return &value_; }

private:
    static void close(type value) noexcept {
        if (value != Traits::empty)
            Traits::close(value);
    }

    type value_;
};

struct fd_traits {
    using type = int;
    static constexpr type empty = -1;
    static void close(type fd) noexcept; // keeps errno: the caller may still report why it gave up
};

// What a function frees.
template <class T, auto free> struct freed_by {
    using type = T*;
    static constexpr type empty = nullptr;
    static void close(type object) noexcept { (void)free(object); }
};

using unique_fd = unique_handle<fd_traits>;
using unique_string = unique_handle<freed_by<char, std::free>>;

// Changes the process's file-creation mask for as long as it lives.
class umask_guard {
public:
    explicit umask_guard(mode_t mask) noexcept : saved_(::umask(mask)) {}
    umask_guard(const umask_guard&) = delete;
    umask_guard& operator=(const umask_guard&) = delete;
    ~umask_guard() { (void)::umask(saved_); }

private:
    mode_t saved_;
};

} // namespace conf
