/**
 * @file callable.hpp
 * Holds a callable of any type, and lets nothing escape from one that C has called.
 */
#ifndef PELMCONF_CALLABLE_HPP
#define PELMCONF_CALLABLE_HPP

#include "error.hpp"

#include <exception>
#include <memory>
#include <type_traits>

namespace pelmconf {
inline namespace PELMCONF_MODE {

template <class Signature> class callable;

/**
 * Owns a callable, which may be move-only. It is called with what the signature says or without
 * arguments, whichever it takes, and returns nothing, a T, or a result<T>; nothing stands for an
 * empty T.
 */
template <class T, class... Given> class callable<result<T>(Given...)> {
public:
    /** Holds none, and must not be called. */
    callable() = default;
    /** Takes any callable, by moving or copying it; none from a null pointer or what is empty. */
    template <class F, class = std::enable_if_t<!std::is_same_v<std::decay_t<F>, callable>>>
    callable(F&& f) { // NOLINT: meant to convert
        if (!is_null(f))
            held_ = std::make_unique<holder<std::decay_t<F>>>(std::forward<F>(f));
    }

    /** @return whether there is one */
    explicit operator bool() const noexcept { return held_ != nullptr; }
    /** Calls it; it stays where it is even when this object is moved meanwhile. */
    result<T> operator()(Given... given) const { return held_->call(given...); }

private:
    /** @cond */
    struct holder_base {
        holder_base() = default;
        holder_base(const holder_base&) = delete;
        holder_base& operator=(const holder_base&) = delete;
        virtual ~holder_base() = default;
        virtual result<T> call(Given... given) = 0;
    };

    // Of what can be made of null: a pointer to a function, a std::function.
    template <class F> static bool is_null([[maybe_unused]] const F& f) {
        if constexpr (std::is_constructible_v<F, std::nullptr_t>)
            return f == nullptr;
        else
            return false;
    }

    template <class F> class holder final : public holder_base {
    public:
        explicit holder(F given) : callable_(std::move(given)) {}

        result<T> call([[maybe_unused]] Given... given) override {
            if constexpr (std::is_invocable_v<F&, Given...>)
                return returned(callable_, given...);
            else
                return returned(callable_);
        }

    private:
        template <class... Taken> static result<T> returned(F& callable, Taken... taken) {
            static_assert(std::is_invocable_v<F&, Taken...>,
                          "A callable takes what it is called with, or nothing.");
            using returned_type = std::invoke_result_t<F&, Taken...>;
            static_assert(std::is_void_v<returned_type> ||
                              std::is_convertible_v<returned_type, result<T>>,
                          "A callable returns nothing, what it is asked for, an error, or a "
                          "pelmconf::result of it.");
            if constexpr (!std::is_void_v<returned_type>) {
                return callable(taken...);
            } else {
                callable(taken...);
                return nothing();
            }
        }
        static result<T> nothing() {
            if constexpr (std::is_void_v<T>)
                return {};
            else
                return T();
        }
        F callable_;
    };

    /** @endcond */
    std::unique_ptr<holder_base> held_;
};

namespace detail {

#ifdef __cpp_exceptions
/**
 * Tells of what is being handled: an error with its code, any other exception with its text, and
 * what is none of the standard's without.
 *
 * @return what tell() returns
 */
template <class Tell> int tell_caught(const Tell& tell) noexcept {
    try {
        try {
            throw;
        } catch (const error& why) {
            return tell(why.code(), why.what());
        } catch (const std::exception& why) {
            return tell(-1, error(-1, why.what()).what());
        }
    } catch (...) { // no exception of the standard's, or no memory for the text
        return tell(-1, "");
    }
}
#endif

/**
 * Runs C++ code that C has called.
 *
 * @param code  returns a result<T>
 * @param keep  takes the T of a success; not called for result<>
 * @param tell  takes the code and the text of a failure, "" for none; returns what C is to get
 * @return 0, or what tell() returns
 */
template <class Code, class Keep, class Tell>
int guarded(Code code, [[maybe_unused]] Keep keep, const Tell& tell) noexcept {
#ifdef __cpp_exceptions
    try {
#endif
        auto outcome = code();
        if (!outcome)
            return tell(outcome.failure().code(), outcome.failure().what());
        if constexpr (!std::is_same_v<decltype(outcome), result<>>)
            keep(*outcome);
        return 0;
#ifdef __cpp_exceptions
    } catch (...) {
        return tell_caught(tell);
    }
#endif
}

} // namespace detail

} // namespace PELMCONF_MODE
} // namespace pelmconf

#endif
