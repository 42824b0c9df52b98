/**
 * @file plugin.hpp
 * A plugin whose callbacks are C++ callables.
 *
 *     pelmconf::plugin ntp("ntp");
 *     ntp.on_change("/ntp/server", 10, [&](const pelmconf::change& c) { use(c.after()); });
 *     const int readable = ntp.start();    // for the event loop
 *     ntp.serve();                         // now, and whenever it is readable
 *
 * A process is one plugin: of several objects one at a time can be started, or have its table used
 * by C. All of it belongs to one thread. A child made by fork() starts without a plugin, and the
 * copy there closes nothing of its parent.
 *
 * What a callable refuses with, an error{code, text} thrown or returned, is the daemon's answer.
 * Any other exception refuses with the code -1 and its text; what is none of the standard's, with
 * the library's own text. None gets into the library. (Cancelling a thread in a callable ends the
 * process, as in C.)
 *
 * A callable may do all that a callback may: ask the daemon, close or destroy its own plugin (the
 * request gets no answer, and the callable lives until it returns), start another one, register
 * more callables, which count from the next start().
 */
#ifndef PELMCONF_PLUGIN_HPP
#define PELMCONF_PLUGIN_HPP

#include "callbacks.hpp"

#include <algorithm>

namespace pelmconf {
inline namespace PELMCONF_MODE {

/**
 * A plugin, however many slots it has. It neither moves nor is copied; its end closes it. What it is
 * to call must be there: a null pointer is a std::logic_error, or the end of the process.
 */
class plugin_base {
public:
    plugin_base(const plugin_base&) = delete;
    plugin_base& operator=(const plugin_base&) = delete;
    /**
     * Subscribes to changes at a path.
     *
     * @param path  as in econf_config_cb_info_t: an ampersand in it is written "&amp;"
     * @param priority  handed to the daemon, which decides what it means
     * @param call  takes const change& or nothing; returns nothing or result<>
     */
    plugin_base& on_change(std::string path, int priority, callable<result<>(const change&)> call) {
        require(bool(call));
        registry_->changes.push_back({std::move(path), priority, std::move(call)});
        return *this;
    }
    /**
     * Publishes a status.
     *
     * @param call  takes const status_query& or nothing; returns nothing, a tree of one element, or
     *         result<tree>
     */
    plugin_base& on_status(std::string path, callable<result<tree>(const status_query&)> call) {
        require(bool(call));
        registry_->statuses.push_back({std::move(path), 0, std::move(call)});
        return *this;
    }
    /**
     * Serves an operation.
     *
     * @param call  takes const operation& or nothing; returns nothing (answered with "ok"), a tree,
     *         or result<tree>
     */
    plugin_base& on_operation(std::string path, callable<result<tree>(const operation&)> call) {
        require(bool(call));
        registry_->operations.push_back({std::move(path), 0, std::move(call)});
        return *this;
    }
    /**
     * Is told when the daemon asks for a fresh start; of several, each in turn until one fails.
     * What it fails with stands in the plugin log alone.
     *
     * @param call  takes nothing; returns nothing or result<>
     */
    plugin_base& on_kick_off(callable<result<>()> call) {
        require(bool(call));
        registry_->kick_offs.push_back(std::move(call));
        return *this;
    }

    /**
     * Registers the plugin and goes active: econf_plugin_init() and econf_plugin_activate().
     *
     * @return the descriptor, to be watched for input and hang-up; the library's, until close()
     * Fails, with nothing left behind, as those calls do and table() does; it may be called again
     */
    or_error<int> start(ECONF_PLUGIN_ACTIVATE_MODE mode = ACTIVATE_WITH_CFGR) {
        if (get_plugin_context() != nullptr)
            return detail::failed<int>(error(-1, "The process has a plugin already."));
        if (const std::optional<error> why = describe())
            return detail::failed<int>(*why);
        const int descriptor = econf_plugin_init(registry_->name.c_str(), &described_);
        if (descriptor < 0) {
            close();
            return detail::failed<int>(
                error(-1, "There is no daemon, or it did not take the plugin " + registry_->name +
                              "; the plugin log says why."));
        }
        if (econf_plugin_activate(mode) != 0) {
            close();
            return detail::failed<int>(error(-1, "The daemon did not let the plugin " +
                                                     registry_->name +
                                                     " go active; the plugin log says why."));
        }
        return descriptor;
    }
    /**
     * Serves all that has arrived, and waits for nothing; call it once after start(), too. Not from
     * a callable. As econf_plugin_run(); nothing when it is not registered.
     */
    void serve() noexcept {
        if (context() != nullptr)
            econf_plugin_run();
    }
    /** Goes inactive; the connection stays. As econf_plugin_deactivate(), if it is registered. */
    void deactivate() noexcept {
        if (context() != nullptr)
            econf_plugin_deactivate();
    }
    /** Goes active again. Fails when it is not registered, is active, or the daemon does not agree. */
    or_error<void> activate(ECONF_PLUGIN_ACTIVATE_MODE mode = ACTIVATE_WITH_CFGR) {
        return detail::succeeded(context() != nullptr && econf_plugin_activate(mode) == 0,
                                 "The plugin cannot go active.");
    }
    /**
     * Ends the connection, if it is this plugin's, and takes table() back. The callables stay, for
     * another start().
     */
    void close() noexcept {
        if (detail::served_registry != registry_.get())
            return;
        const bool is_registered = context() != nullptr;
        registry_->is_lent = false;
        detail::let_serve(nullptr);
        if (is_registered)
            econf_plugin_close();
    }

    /** @return the C object while this plugin is registered in this process; null otherwise */
    conf_plugin_context_t* context() const noexcept {
        return detail::served_registry == registry_.get() ? detail::own_context() : nullptr;
    }
    /**
     * Describes the plugin for C: for econf_plugin_init(), pelmtest_begin(), or a daemon that has
     * the plugin inside. The callbacks of the process then belong to this object until close().
     *
     * @return this object's, good until a callable is added
     * Fails when there are more callables of a kind than slots, or while the callbacks belong to
     * another object: one that is registered, or whose table was given out
     */
    or_error<econf_plugin_subpub_info_t*> table() {
        if (const std::optional<error> why = describe())
            return detail::failed<econf_plugin_subpub_info_t*>(*why);
        registry_->is_lent = true;
        return &described_;
    }

protected:
    /** Closes it, and lets go of the callables. */
    ~plugin_base() { close(); }
    /** Of a name, with the functions of its slots. */
    plugin_base(std::string name, detail::slot_table slots)
        : registry_(std::make_shared<detail::registry>()), slots_(slots) {
        registry_->name = std::move(name);
    }

private:
    static void require(bool is_callable) {
        if (!is_callable)
            detail::give_up(std::logic_error("A plugin cannot call what is null or empty."));
    }
    // Makes the tables, and the process's callbacks this object's. @return why not
    std::optional<error> describe() {
        const detail::registry& all = *registry_;
        const std::size_t most =
            std::max({all.changes.size(), all.statuses.size(), all.operations.size()});
        if (most > slots_.size)
            return error(-1, "The plugin " + all.name + " has " + std::to_string(most) +
                                 " callables of a kind and " + std::to_string(slots_.size) +
                                 " slots: make it a pelmconf::basic_plugin<" +
                                 std::to_string(most) + ">.");
        const detail::registry* served = detail::served_registry;
        if (served != nullptr && served != &all &&
            (served->is_lent || detail::own_context() != nullptr))
            return error(-1, "Another plugin of the process is being served.");
        fill_tables();
        detail::let_serve(registry_.get());
        return std::nullopt;
    }
    void fill_tables() {
        changes_.clear();
        for (const auto& each : registry_->changes)
            changes_.push_back({each.path.c_str(), each.priority, slots_.changes[changes_.size()]});
        changes_.push_back({nullptr, 0, nullptr});
        statuses_.clear();
        for (const auto& each : registry_->statuses)
            statuses_.push_back({each.path.c_str(), slots_.statuses[statuses_.size()]});
        statuses_.push_back({nullptr, nullptr});
        operations_.clear();
        for (auto& each : registry_->operations)
            operations_.push_back({each.path.data(), slots_.operations[operations_.size()]});
        operations_.push_back({nullptr, nullptr});
        // A kick-off is served without callables, too: own_context() is known by it.
        described_ = {changes_.data(), statuses_.data(), operations_.data(),
                      detail::serve_kick_off};
    }

    std::shared_ptr<detail::registry> registry_;
    detail::slot_table slots_;
    std::vector<econf_config_cb_info_t> changes_;
    std::vector<econf_status_cb_info_t> statuses_;
    std::vector<econf_operate_cb_info_t> operations_;
    econf_plugin_subpub_info_t described_{};
};

/** A plugin with so many slots for callables of each kind. Each slot costs some tens of bytes. */
template <int Slots> class basic_plugin : public plugin_base {
public:
    static_assert(Slots > 0, "A plugin has a slot at least.");
    /** @param name  what the daemon knows it by */
    explicit basic_plugin(std::string name)
        : plugin_base(std::move(name),
                      detail::functions_of(std::make_integer_sequence<int, Slots>())) {}
};

/** A plugin with slots for 32 callables of each kind. */
using plugin = basic_plugin<32>;

} // namespace PELMCONF_MODE
} // namespace pelmconf

#endif
