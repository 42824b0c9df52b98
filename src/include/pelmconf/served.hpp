/**
 * @file served.hpp
 * What a plugin's callables are given: a change, a question for the status, an operation.
 */
#ifndef PELMCONF_SERVED_HPP
#define PELMCONF_SERVED_HPP

#include "requests.hpp"

namespace pelmconf {
inline namespace PELMCONF_MODE {

/** What has happened to a path: bits CONFIG_OP_*. */
class operation_set {
public:
    /** @param bits  as C has them */
    explicit operation_set(int bits) noexcept : bits_(bits) {}

    /** @return whether one of these bits is set, as in CONFIG_OP_ADD | CONFIG_OP_MOD */
    bool has(int some) const noexcept {
        return (static_cast<unsigned>(bits_) & static_cast<unsigned>(some)) != 0;
    }
    /** @return all bits, as C has them */
    int bits() const noexcept { return bits_; }

private:
    int bits_;
};

/** A change at a path that a plugin has subscribed to. Texts are valid during the call. */
struct change {
    const char*
        path; /**< key values unquoted where that is unambiguous; "" when the daemon named none */
    int session;              /**< the daemon's session, -1 when it named none */
    int priority;             /**< the one that the callable was registered with */
    operation_set operations; /**< what happened */
    int more_flag;            /**< the daemon's, unchanged */

    /** @return what stood at the path; empty for nothing. Fails as pull() */
    or_error<tree> before() const { return read(pull_before); }
    /** @return what stands there now; empty for nothing. Fails as pull() */
    or_error<tree> after() const { return read(pull); }
    /** @return whether it was taken away */
    bool removed() const noexcept { return operations.has(CONFIG_OP_RM); }
    /** @return whether it takes back a change that another plugin has refused */
    bool rolled_back() const noexcept { return operations.has(CONFIG_OP_ROLLBACK); }
    /** @return whether the daemon's more-flag is set */
    bool more() const noexcept { return more_flag != 0; }

private:
    or_error<tree> read(or_error<tree> (*from)(const std::string&)) const {
        if (*path == '\0')
            return detail::failed<tree>(error(-1, "The daemon named no path."));
        return from(path);
    }
};

/** A question for the status at a path. Texts are valid during the call. */
struct status_query {
    const char* path;   /**< "" when the daemon named none */
    const char* filter; /**< "" for none */
    int session;        /**< the daemon's session, -1 when it named none */
};

/** An operation to carry out. */
struct operation {
    nodes input; /**< what the daemon sent; valid during the call */
    int session; /**< the daemon's session, -1 when it named none */
};

} // namespace PELMCONF_MODE
} // namespace pelmconf

#endif
