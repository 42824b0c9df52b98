/**
 * @file daemon.hpp
 * The daemon's side: its sockets, the messages it exchanges with plugins, and the hooks for a
 * plugin that lives in its own process.
 */
#ifndef PELMCONF_DAEMON_HPP
#define PELMCONF_DAEMON_HPP

#include "callable.hpp"
#include "frames.hpp"

#include <conf_agent.h>
#include <conf_debug.h>
#include <unistd.h>

namespace pelmconf {
inline namespace PELMCONF_MODE {
namespace daemon {

/**
 * Reads the profile, after which the endpoints are at its places.
 *
 * @return the directory that it names, or "". Fails without a valid profile; the places are as
 *         before then
 */
inline or_error<std::string> load_config() {
    char* directory = nullptr;
    if (conf_load_config(&directory) != 0)
        return detail::failed<std::string>(
            error(-1, "There is no valid profile; the plugin log says why."));
    const std::unique_ptr<char, detail::freed_by<std::free>> owned(directory);
    return std::string(directory == nullptr ? "" : directory);
}

/**
 * A socket of the daemon's, which goes with its file. Move-only; one that was moved from removes
 * nothing. In a child made by fork() the copy closes its descriptor and leaves the file alone.
 */
template <int (*Enable)(), void (*Disable)(int)> class endpoint {
public:
    /**
     * Makes the socket, in place of any file there. Fails as the C call, which says why in its log.
     */
    static or_error<endpoint> open() {
        const int sock = Enable();
        if (sock < 0)
            return detail::failed<endpoint>(
                error(-1, "The socket cannot be made; the log says why."));
        return endpoint(sock);
    }
    /** What was moved from removes nothing. */
    endpoint(endpoint&& other) noexcept
        : sock_(std::exchange(other.sock_, -1)), maker_(other.maker_) {}
    /** As above. */
    endpoint& operator=(endpoint&& other) noexcept {
        std::swap(sock_, other.sock_);
        std::swap(maker_, other.maker_);
        return *this;
    }
    ~endpoint() {
        if (sock_ >= 0)
            (getpid() == maker_ ? Disable : leave)(sock_);
    }
    /** @return the non-blocking socket, which stays the endpoint's */
    int descriptor() const noexcept { return sock_; }
    /** @return the socket, which is the caller's then, as is its file */
    [[nodiscard]] int release() noexcept { return std::exchange(sock_, -1); }

private:
    explicit endpoint(int sock) noexcept : sock_(sock), maker_(getpid()) {}
    static void leave(int sock) { static_cast<void>(::close(sock)); }
    int sock_;
    pid_t maker_; // whose the file is
};

/** Where plugins connect. */
using plugin_endpoint = endpoint<conf_plugin_service_enable, conf_plugin_service_disable>;
/** Where notifications arrive. */
using notifier_endpoint = endpoint<conf_plugin_notifier_enable, conf_plugin_notifier_disable>;
/** Where agents connect. */
using agent_endpoint = endpoint<conf_agent_service_enable, conf_agent_service_disable>;

/**
 * Builds a request.
 *
 * @param params  becomes the request's, in every case. Fails for empty parameters, or without
 *         memory.
 */
inline or_error<tree> build_rpc(const std::string& method, tree params, u32_t id) {
    tree built(plugin_build_rpc_message(method.c_str(), params.release(), id));
    if (!built)
        return detail::failed<tree>(error(-1, "The request cannot be built."));
    return built;
}

/**
 * Builds an answer.
 *
 * @param outcome  a "result" or an "error"; becomes the answer's, in every case. Fails as
 *         build_rpc().
 */
inline or_error<tree> build_reply(tree outcome, u32_t id) {
    tree built(plugin_build_reply_message(outcome.release(), id));
    if (!built)
        return detail::failed<tree>(error(-1, "The answer cannot be built."));
    return built;
}

/** What a request says; all of it stays the message's. */
struct rpc {
    const char* method = ""; /**< its name */
    node params;             /**< the element */
    u32_t id = 0;            /**< 0 for none */
};

/** Splits a request. Fails when the method or the parameters are missing. */
inline or_error<rpc> parse_rpc(node message) {
    const char* method = nullptr;
    xmlNode* params = nullptr;
    if (plugin_parse_rpc(message.get(), &method, &params) != 0)
        return detail::failed<rpc>(error(-1, "That is no request."));
    return rpc{method == nullptr ? "" : method, node(params), plugin_get_msgid(message.get())};
}

/** What an answer says; all of it stays the message's. One of result and refusal is there. */
struct reply {
    node result;           /**< the element, or none */
    node refusal;          /**< the element "error", or none */
    u32_t id = 0;          /**< 0 for none */
    int code = 0;          /**< the refusal's; -1 when it has none */
    const char* text = ""; /**< the refusal's */
};

/** Splits an answer. Fails unless it has exactly one of "result" and "error". */
inline or_error<reply> parse_reply(node message) {
    xmlNode* result = nullptr;
    xmlNode* refusal = nullptr;
    if (plugin_parse_reply(message.get(), &result, &refusal) != 0)
        return detail::failed<reply>(error(-1, "That is no answer."));
    reply parsed{node(result), node(refusal), plugin_get_msgid(message.get())};
    if (refusal != nullptr) {
        parsed.code = plugin_get_reply_errcode(refusal);
        if (const char* text = plugin_get_reply_errmsg(refusal))
            parsed.text = text;
    }
    return parsed;
}

/**
 * The hooks of a plugin inside the daemon; any may be missing, which fails the plugin's call as in
 * C. What a hook fails with goes to the plugin log, and its code to the plugin's call; nothing
 * escapes.
 */
struct hooks {
    /** For pelmconf::locate(). */
    callable<pelmconf::result<tree>(bool old, const char* path)> locate;
    /** For pelmconf::pull(). */
    callable<pelmconf::result<tree>(bool old, const char* path)> pull;
    /** For pelmconf::push(). */
    callable<pelmconf::result<>(const char* path, nodes data)> push;
    /** For pelmconf::config_deployment(); oper as in C. */
    callable<pelmconf::result<>(const char* path, int oper, nodes data)> config_deployment;
    /** For pelmconf::save_deployment(). */
    callable<pelmconf::result<>()> save_deployment;
    /** For its namesake; 1 replaces. */
    callable<pelmconf::result<>(int override_flag)> copy_running_to_deployment;
    /** For econf_plugin_error(), which nobody hears of where this is missing; text may be null. */
    callable<pelmconf::result<>(int code, const char* text)> error;
    /** For conf_send_reply(). */
    callable<pelmconf::result<>(int session, nodes rpc, nodes data)> reply;
};

} // namespace daemon

namespace detail {

/** Those of this process, for its whole life; null before install(). */
inline const daemon::hooks* installed_hooks = nullptr;

inline int log_failure(int code, const char* text) noexcept {
    _conf_write_log(DBG_ERROR, "%s", text);
    return code;
}

/** Runs a hook for C. */
template <class Code, class Keep> int hooked(Code code, Keep keep) noexcept {
    return guarded(code, keep, log_failure);
}

template <callable<pelmconf::result<tree>(bool, const char*)> daemon::hooks::*Hook>
int read_hook(bool_t old, const char* path, xmlNode** found) noexcept {
    return hooked([=] { return (installed_hooks->*Hook)(old != 0, path); },
                  [found](tree& given) { *found = given.release(); });
}

inline void error_hook(int code, const char* text) noexcept {
    static_cast<void>(hooked([=] { return installed_hooks->error(code, text); }, nullptr));
}

/** Makes the C table of hooks; those that are missing are null in it. */
inline pelmd_plugin_callback_t table_of(const daemon::hooks& some) {
    pelmd_plugin_callback_t table{};
    if (some.locate)
        table.conf_plugin_locate = read_hook<&daemon::hooks::locate>;
    if (some.pull)
        table.conf_plugin_pull = read_hook<&daemon::hooks::pull>;
    if (some.push)
        table.conf_plugin_push = [](const char* path, xmlNode* data) {
            return hooked([=] { return installed_hooks->push(path, nodes(data)); }, nullptr);
        };
    if (some.config_deployment)
        table.conf_plugin_config_deployment = [](const char* path, int oper, xmlNode* data) {
            return hooked(
                [=] { return installed_hooks->config_deployment(path, oper, nodes(data)); },
                nullptr);
        };
    if (some.save_deployment)
        table.conf_plugin_save_deployment = [] {
            return hooked([] { return installed_hooks->save_deployment(); }, nullptr);
        };
    if (some.copy_running_to_deployment)
        table.conf_plugin_copy_running_to_deployment = [](int flag) {
            return hooked([=] { return installed_hooks->copy_running_to_deployment(flag); },
                          nullptr);
        };
    if (some.error)
        table.conf_plugin_error = error_hook;
    if (some.reply)
        table.conf_plugin_reply = [](int session, xmlNode* rpc, xmlNode* data) {
            return hooked([=] { return installed_hooks->reply(session, nodes(rpc), nodes(data)); },
                          nullptr);
        };
    return table;
}

} // namespace detail

namespace daemon {

/**
 * Makes the process a plugin inside the daemon, whose calls these hooks serve until it ends. Fails
 * where there are hooks already, which stay.
 */
inline or_error<void> install(hooks some) {
    auto kept = std::make_unique<const hooks>(std::move(some));
    pelmd_plugin_callback_t table = detail::table_of(*kept);
    if (get_plugin_hooks() != nullptr)
        return detail::failed<void>(pelmconf::error(-1, "The process has hooks already."));
    if (conf_plugin_init_api(&table) != 0)
        detail::give_up(std::bad_alloc());
    detail::installed_hooks = kept.release(); // for the life of the process
    return or_error<void>();
}

} // namespace daemon
} // namespace PELMCONF_MODE
} // namespace pelmconf

#endif
