/**
 * @file error.hpp
 * How failures are told in C++, with exceptions and without.
 *
 * A callback refuses with an error{code, text}, thrown or returned. A call that fails throws one;
 * where exceptions are off (-fno-exceptions) it returns a result, which holds what was asked for or
 * the error. or_error<T> stands for both at each declaration.
 *
 * Without memory std::bad_alloc is thrown; where exceptions are off the process ends, as it does in
 * the standard library then.
 */
#ifndef PELMCONF_ERROR_HPP
#define PELMCONF_ERROR_HPP

#include <cstddef>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

/* The same names mean other types with exceptions than without. A program may have sources of both
   kinds: each has its own functions then. */
#ifdef __cpp_exceptions
#define PELMCONF_MODE throwing /**< where failures are thrown */
#else
#define PELMCONF_MODE returning /**< where failures are returned */
#endif

namespace pelmconf {
inline namespace PELMCONF_MODE {

namespace detail {

/**
 * @return the bytes of the character that text begins with; 0 when XML does not allow what stands
 *         there
 */
inline std::size_t xml_character(std::string_view text) noexcept {
    const auto byte = [text](std::size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
    };
    const unsigned first = byte(0);
    if (first < 0x80U)
        return first >= 0x20U || first == '\t' || first == '\n' || first == '\r' ? 1 : 0;
    if (first < 0xC2U || first > 0xF4U)
        return 0;
    const std::size_t length = first < 0xE0U ? 2 : first < 0xF0U ? 3 : 4;
    unsigned code = first & (0x7FU >> length);
    for (std::size_t at = 1; at < length; ++at) {
        if ((byte(at) & 0xC0U) != 0x80U)
            return 0;
        code = code << 6U | (byte(at) & 0x3FU);
    }
    const bool is_overlong = code < (length == 4 ? 0x10000U : length == 3 ? 0x800U : 0x80U);
    const bool is_surrogate = code >= 0xD800U && code <= 0xDFFFU;
    const bool is_none = code == 0xFFFEU || code == 0xFFFFU || code > 0x10FFFFU;
    return is_overlong || is_surrogate || is_none ? 0 : length;
}

} // namespace detail

/**
 * Puts a question mark in the place of each byte that XML does not allow: one such byte in a
 * message, and the daemon could not read any of it. All texts of errors and trees go through here.
 */
inline std::string fit_for_xml(std::string text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = detail::xml_character(std::string_view(text).substr(at));
        if (length == 0)
            text[at] = '?';
        at += length == 0 ? 1 : length;
    }
    return text;
}

/**
 * Why something failed; thrown or returned by a callback, its code and text are what the daemon
 * gets.
 */
class error : public std::runtime_error {
public:
    /**
     * @param code  what the daemon is told; 0, which it would take for success, becomes -1
     * @param text  made fit for XML; empty for the library's own: "Service process failed."
     */
    explicit error(int code, std::string text = {})
        : std::runtime_error(fit_for_xml(std::move(text))), code_(code != 0 ? code : -1) {}

    /** @return the code, never 0 */
    int code() const noexcept { return code_; }

private:
    int code_;
};

/**
 * What was asked for, or the error in its place. Callables may return one whether exceptions are on
 * or off. Whoever asks a failure for its value gets std::bad_variant_access, or ends the process.
 */
template <class T = void> class [[nodiscard]] result {
public:
    /** Success. */
    result(T value)
        : state_(std::in_place_index<0>, std::move(value)) {} // NOLINT: meant to convert
    /** Failure. */
    result(error why) : state_(std::in_place_index<1>, std::move(why)) {} // NOLINT

    /** @return whether there is a value */
    explicit operator bool() const noexcept { return state_.index() == 0; }
    /** @return the value */
    T& operator*() & { return std::get<0>(state_); }
    /** @return the value */
    const T& operator*() const& { return std::get<0>(state_); }
    /** @return the value, to be moved */
    T&& operator*() && { return std::get<0>(std::move(state_)); }
    /** @return the value's address; not of a result without a name, which nobody has asked first */
    T* operator->() & { return &std::get<0>(state_); }
    /** @return the value's address, as above */
    const T* operator->() const& { return &std::get<0>(state_); }
    const T* operator->() const&& = delete;
    /** @return the error; only of one that has no value */
    const error& failure() const { return std::get<1>(state_); }

private:
    std::variant<T, error> state_;
};

/** Success, or an error. */
template <> class [[nodiscard]] result<void> {
public:
    /** Success. */
    result() = default;
    /** Failure. */
    result(error why) : failure_(std::move(why)) {} // NOLINT: meant to convert

    /** @return whether it is success */
    explicit operator bool() const noexcept { return !failure_; }
    /** @return the error; only of one that is no success */
    const error& failure() const { return failure_.value(); }

private:
    std::optional<error> failure_;
};

#ifdef __cpp_exceptions
template <class T> using or_error = T; /**< T; a failure is thrown as an error */
#else
template <class T> using or_error = result<T>; /**< T, or the error */
#endif

namespace detail {

/** Ends a call that has failed: throws the error, or returns it. */
template <class T> or_error<T> failed(const error& why) {
#ifdef __cpp_exceptions
    throw why;
#else
    return why;
#endif
}

/** Ends a call that gives nothing: as failed() unless it is done. */
inline or_error<void> succeeded(bool is_done, const char* text) {
    if (!is_done)
        return failed<void>(error(-1, text));
    return or_error<void>();
}

/** For what no caller is to handle case by case: throws it, or ends the process. */
template <class Exception> [[noreturn]] void give_up(const Exception& why) {
#ifdef __cpp_exceptions
    throw why;
#else
    static_cast<void>(why);
    std::abort();
#endif
}

} // namespace detail

} // namespace PELMCONF_MODE
} // namespace pelmconf

#endif
