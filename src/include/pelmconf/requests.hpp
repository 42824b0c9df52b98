/**
 * @file requests.hpp
 * What a plugin asks of the daemon, notifications, forms of paths, and the switch of the plugin
 * log.
 *
 * Each is the call of the same name in conf_api.h, which says what it waits for and what the daemon
 * does. A failure of the call is an error with the code -1; in a callback it refuses unless it is
 * caught.
 */
#ifndef PELMCONF_REQUESTS_HPP
#define PELMCONF_REQUESTS_HPP

#include "tree.hpp"

#include <conf_api.h>

namespace pelmconf {
inline namespace PELMCONF_MODE {

namespace detail {

/** Between a call that fills in a list of nodes and its owner. */
template <class Call>
or_error<tree> received(Call call, const char* what, const std::string& path) {
    xmlNode* found = nullptr;
    if (call(path.c_str(), &found) != 0)
        return failed<tree>(error(-1, what + path + "."));
    return tree(found);
}

} // namespace detail

/**
 * Reads the configuration at a path.
 *
 * @return new nodes, the caller's; empty when there is nothing or the daemon answered with an
 *         error. Fails without an active plugin, or when no answer comes.
 */
inline or_error<tree> pull(const std::string& path) {
    return detail::received(
        [](const char* at, xmlNode** found) { return econf_plugin_pull(0, at, found); },
        "Cannot read ", path);
}

/** As pull(), for the configuration before the change. */
inline or_error<tree> pull_before(const std::string& path) {
    return detail::received(
        [](const char* at, xmlNode** found) { return econf_plugin_pull(1, at, found); },
        "Cannot read what was at ", path);
}

/**
 * Reads where a path stands among its neighbours.
 *
 * @return new elements "prev" and "next", the caller's, as far as there are such. Fails as pull().
 */
inline or_error<tree> locate(const std::string& path) {
    return detail::received(
        [](const char* at, xmlNode** found) { return econf_plugin_locate(0, at, found); },
        "Cannot locate ", path);
}

/** As locate(), for the configuration before the change. */
inline or_error<tree> locate_before(const std::string& path) {
    return detail::received(
        [](const char* at, xmlNode** found) { return econf_plugin_locate(1, at, found); },
        "Cannot locate what was at ", path);
}

/**
 * Hands data to the daemon.
 *
 * @param data  is copied, and stays the caller's; empty fails
 */
inline or_error<void> push(const std::string& path, nodes data) {
    return detail::succeeded(econf_plugin_push(path.c_str(), data.get()) == 0,
                             "The daemon took no data.");
}

/** What is done in the deployment store. */
enum class deployment { add = 0, remove = 1, update = 2 };

/**
 * Changes the deployment store.
 *
 * @param data  as in push()
 */
inline or_error<void> config_deployment(const std::string& path, deployment what, nodes data) {
    return detail::succeeded(
        econf_plugin_config_deployment(path.c_str(), static_cast<int>(what), data.get()) == 0,
        "The daemon did not change the deployment store.");
}

/** Asks the daemon to save the deployment store. */
inline or_error<void> save_deployment() {
    return detail::succeeded(econf_plugin_save_deployment() == 0,
                             "The daemon did not save the deployment store.");
}

/**
 * Asks the daemon to copy between the running configuration and the deployment store.
 *
 * @param replaces  whether what is there is replaced
 */
inline or_error<void> copy_running_to_deployment(bool replaces) {
    return detail::succeeded(econf_plugin_copy_running_to_deployment(replaces ? 1 : 0) == 0,
                             "The daemon did not copy to the deployment store.");
}

/**
 * Sends a notification; from any thread, without a plugin.
 *
 * @param name  for the log
 * @param data  its first node is sent; stays the caller's; empty fails
 */
inline or_error<void> notify(const std::string& name, nodes data) {
    return detail::succeeded(econf_notify(name.c_str(), data.get()) == 0,
                             "The notification was not sent.");
}

/**
 * As above, with ready-made text, which is sent as it stands, up to its first zero, and with one.
 */
inline or_error<void> notify(const std::string& name, const std::string& text) {
    return detail::succeeded(
        conf_notify(const_cast<char*>(name.c_str()), const_cast<char*>(text.c_str())) == 0,
        "The notification was not sent.");
}

/** As above, but fails at once when the daemon's queue is full. */
inline or_error<void> notify_nonblock(const std::string& name, const std::string& text) {
    return detail::succeeded(
        conf_notify_nonblock(const_cast<char*>(name.c_str()), const_cast<char*>(text.c_str())) == 0,
        "The notification was not sent.");
}

namespace detail {

/** Takes a string that malloc() made; null means that there was no memory. */
inline std::string taken(char* made) {
    const std::unique_ptr<char, freed_by<std::free>> owned(made);
    if (made == nullptr)
        give_up(std::bad_alloc());
    return made;
}

} // namespace detail

/** @return the standard form of a schema path */
inline std::string path_schema2std(const std::string& path) {
    return detail::taken(plugin_path_schema2std(path.c_str()));
}

/** @return the standard form of a data path */
inline std::string path_data2std(const std::string& path) {
    return detail::taken(plugin_path_data2std(path.c_str()));
}

/** @return the form of the database */
inline std::string path_std2db(const std::string& path) {
    return detail::taken(plugin_path_std2db(path.c_str()));
}

/**
 * Switches the plugin log on.
 *
 * @param level  the highest that is written, DBG_CRIT to DBG_ALL; another one fails, and changes
 *         nothing
 */
inline or_error<void> log_up_to(int level) {
    return detail::succeeded(level >= DBG_CRIT && econf_plugin_config_debug(level, 1) == 0,
                             "There is no such level of the log.");
}

/** Switches the plugin log off. */
inline void log_off() noexcept { static_cast<void>(econf_plugin_config_debug(DBG_ALL, 0)); }

} // namespace PELMCONF_MODE
} // namespace pelmconf

#endif
