/**
 * @file callbacks.hpp
 * The functions that C calls for a plugin, and whose callables they lead to.
 */
#ifndef PELMCONF_CALLBACKS_HPP
#define PELMCONF_CALLBACKS_HPP

#include "callable.hpp"
#include "served.hpp"

#include <conf_plugin.h>
#include <vector>

namespace pelmconf {
inline namespace PELMCONF_MODE {

namespace detail {

/** The callables of a plugin. They outlive it while one of them runs. */
struct registry : std::enable_shared_from_this<registry> {
    template <class Signature> struct entry {
        std::string path;
        int priority;
        callable<Signature> call;
    };

    std::string name;
    std::vector<entry<result<>(const change&)>> changes;
    std::vector<entry<result<tree>(const status_query&)>> statuses;
    std::vector<entry<result<tree>(const operation&)>> operations;
    std::vector<callable<result<>()>> kick_offs;
    bool is_lent = false; // C has the table, and may call without a connection, too
};

/** Whose callables the process's callbacks are; null for nobody's. */
inline registry* served_registry = nullptr;
/** How often that was settled. */
inline unsigned served_turn = 0;

/** Settles it. */
inline void let_serve(registry* whose) noexcept {
    served_registry = whose;
    ++served_turn;
}

void serve_kick_off() noexcept;

/**
 * @return the process's C object if it was made of tables from here; null for none, for C's own, and
 *         for those of sources that have exceptions where these have none
 */
inline conf_plugin_context_t* own_context() noexcept {
    conf_plugin_context_t* any = get_plugin_context();
    const bool is_own = any != nullptr && any->cbs_nums > 0 &&
                        any->cbs[0] == reinterpret_cast<econf_subpub_cb_t>(serve_kick_off);
    return is_own ? any : nullptr;
}

/** A call from C: whose callables it is for, and what becomes of its failure. */
class served_call {
public:
    served_call() {
        if (served_registry != nullptr)
            registry_ = served_registry->weak_from_this().lock();
    }
    /** @return what stands in that slot; null for nothing, or when the object has gone */
    template <class Entry>
    const Entry* find(std::vector<Entry> registry::*kind, std::size_t slot) const noexcept {
        if (registry_ == nullptr || slot >= ((*registry_).*kind).size())
            return nullptr;
        return &((*registry_).*kind)[slot];
    }
    /**
     * Records why it fails, unless what is served has ended meanwhile: the next one has not failed.
     *
     * @return the code, for where nothing can be recorded any more
     */
    int operator()(int code, const char* text) const noexcept {
        if (served_turn == turn_ && own_context() == context_)
            econf_plugin_error(code, *text == '\0' ? nullptr : text);
        return code;
    }

private:
    std::shared_ptr<const registry> registry_;
    const unsigned turn_ = served_turn;
    const conf_plugin_context_t* const context_ = own_context();
};

/** What callbacks with a slot have in common. */
template <class Entry, class Code, class Keep>
int served(std::vector<Entry> registry::*kind, int slot, Code code, Keep keep) noexcept {
    const served_call now;
    const Entry* entry = now.find(kind, static_cast<std::size_t>(slot));
    if (entry == nullptr) // C still has a table that was taken back
        return now(-1, "The plugin has ended.");
    return guarded([&] { return code(*entry); }, keep, now);
}

inline const char* or_empty(const char* text) noexcept { return text == nullptr ? "" : text; }

[[gnu::noinline]] inline int serve_change(int session, int oper, int more, int slot,
                                          const char* path) noexcept {
    return served(
        &registry::changes, slot,
        [=](const auto& entry) {
            return entry.call(
                change{or_empty(path), session, entry.priority, operation_set(oper), more});
        },
        nullptr);
}

[[gnu::noinline]] inline int serve_status(int session, const char* path, const char* filter,
                                          xmlNode** status, int slot) noexcept {
    return served(
        &registry::statuses, slot,
        [=](const auto& entry) {
            return entry.call(status_query{or_empty(path), or_empty(filter), session});
        },
        [status](tree& given) { *status = given.release(); });
}

[[gnu::noinline]] inline int serve_operation(int session, xmlNode* input, xmlNode** output,
                                             int slot) noexcept {
    return served(
        &registry::operations, slot,
        [=](const auto& entry) {
            return entry.call(operation{nodes(input), session});
        },
        [output](tree& given) { *output = given.release(); });
}

/** What goes wrong here never reaches the daemon; the library writes it to its log. */
inline void serve_kick_off() noexcept {
    const served_call now;
    const auto call_all = [&now] {
        for (std::size_t at = 0; const auto* call = now.find(&registry::kick_offs, at); ++at)
            if (result<> outcome = (*call)(); !outcome)
                return outcome;
        return result<>();
    };
    static_cast<void>(guarded(call_all, nullptr, now));
}

/**
 * The functions that C calls. It hands no pointer back, so each slot has functions of its own,
 * which do no more than to name it. A change has its slot in the place of the priority, which is
 * known anyway: with as many arguments as before, what remains is one jump.
 */
template <int Slot> struct slot_functions {
    static int change(int session, int oper, int more, int /*priority*/, const char* path) {
        return serve_change(session, oper, more, Slot, path);
    }
    static int status(int session, const char* path, const char* filter, xmlNode** status) {
        return serve_status(session, path, filter, status, Slot);
    }
    static int operation(int session, xmlNode* input, xmlNode** output) {
        return serve_operation(session, input, output, Slot);
    }
};

/** The functions of so many slots of each kind. */
struct slot_table {
    const econf_config_cb_t* changes;
    const econf_status_cb_t* statuses;
    const econf_operate_cb_t* operations;
    std::size_t size;
};

template <int... Slots> slot_table functions_of(std::integer_sequence<int, Slots...>) noexcept {
    static constexpr econf_config_cb_t changes[] = {slot_functions<Slots>::change...};
    static constexpr econf_status_cb_t statuses[] = {slot_functions<Slots>::status...};
    static constexpr econf_operate_cb_t operations[] = {slot_functions<Slots>::operation...};
    return {changes, statuses, operations, sizeof...(Slots)};
}

} // namespace detail

} // namespace PELMCONF_MODE
} // namespace pelmconf

#endif
