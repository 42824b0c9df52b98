/**
 * @file conf_api.h
 * A plugin's door: registration, the dispatch loop, requests to the daemon, notifications, path
 * forms, and the calls of the older API.
 *
 * A process is one plugin. It registers callbacks for paths with econf_plugin_init(), goes active
 * with econf_plugin_activate(), and calls econf_plugin_run() whenever the descriptor that
 * registration gave it is readable; its callbacks run inside that call. All state hangs on the
 * process id: one thread at a time, and a child made by fork() starts without a plugin.
 *
 * Inside the daemon's own process the requests below, econf_plugin_error() and conf_send_reply() go
 * to the hooks that the daemon has injected (conf_plugin_init_api() in conf_plugin.h).
 *
 * Failures are reported to the plugin log (conf_debug.h); econf_plugin_config_debug() turns it on.
 *
 * The library changes no signal's disposition and writes with write(): a plugin that wants to
 * outlive a dying daemon ignores SIGPIPE.
 *
 * No exception may leave a callback: it finds no way through the library, and ends the process. For
 * the same reason, cancelling a thread inside the library runs no destructors of its callers.
 *
 * Texts, names and paths that are sent must be valid UTF-8 without the characters that XML does not
 * allow (all below space but tab, line feed and carriage return; U+FFFE and U+FFFF). The library
 * writes such bytes as they are, and the daemon then cannot read the message at all.
 */
#ifndef CONF_API_H
#define CONF_API_H

#include "conf_debug.h"
#include "conf_def.h"

#include <libxml/tree.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Bits that tell a configuration callback what happened to its path. */
typedef enum _ECONF_CONFIG_OPER_TYPE {
    CONFIG_OP_NONE = 0,
    CONFIG_OP_ADD = 1,
    CONFIG_OP_RM = 2,
    CONFIG_OP_MOD = 4,
    CONFIG_OP_CHAIN = 8,
    CONFIG_OP_MOVE = 16,
    CONFIG_OP_CFGR = 16384,     /**< part of a recovery of the whole configuration */
    CONFIG_OP_ROLLBACK = 32768, /**< takes back an earlier change */
    CONFIG_OP_SMOOTH = 65536,
    CONFIG_OP_ERROR = -1
} ECONF_CONFIG_OPER_TYPE;

/** What the daemon is asked to publish when a plugin goes active. */
typedef enum _ECONF_PLUGIN_ACTIVATE_MODE {
    ACTIVATE_WITH_NONE = 0,
    ACTIVATE_WITH_CFGR = 1,
    ACTIVATE_WITH_SMOOTH = 2
} ECONF_PLUGIN_ACTIVATE_MODE;

/**
 * Told of a change on a subscribed path. The data is not passed: read it with econf_plugin_pull().
 *
 * @param session_id  the daemon's session, -1 when it named none
 * @param oper        CONFIG_OP_* bits, 0 when the daemon sent none
 * @param more        the daemon's more-flag, likewise
 * @param priority    what the daemon sent, likewise; as a rule the priority given at registration
 * @param path        the data path, key values unquoted where that is unambiguous; null when the
 *                    daemon named none; valid during the call
 * @return 0 to accept; any other value refuses and is sent as the error's code, with the text
 *         "Service process failed.", unless econf_plugin_error() recorded a better one
 */
typedef int (*econf_config_cb_t)(int session_id, int oper, int more, int priority,
                                 const char* path);

/**
 * Asked for the status at a path.
 *
 * @param path    valid during the call; may be null
 * @param filter  valid during the call; may be null
 * @param status  receives one new node, the library's from then on whatever is returned; null at
 *                the start, and may stay so. Hand over a copy (xmlCopyNode()) of what belongs to a
 *                parsed document: its names and short texts go when the document is freed
 * @return as econf_config_cb_t
 */
typedef int (*econf_status_cb_t)(int session_id, const char* path, const char* filter,
                                 xmlNode** status);

/**
 * Asked to carry out an operation.
 *
 * @param input   first of the input nodes, or null; valid during the call
 * @param output  receives a list of new sibling nodes, the library's from then on whatever is
 *                returned; null at the start, and may stay so. Copies only, as in econf_status_cb_t
 * @return as econf_config_cb_t
 */
typedef int (*econf_operate_cb_t)(int session_id, xmlNode* input, xmlNode** output);

/** A subscription to configuration; an array of these ends at the first null path. */
typedef struct _econf_config_cb_info {
    const char* path; /**< an ampersand in it begins an entity reference: write "&amp;"; a bare one
                           leaves the path that is announced empty */
    int priority;     /**< handed to the daemon, and back with every change; what it means is the
                           daemon's */
    econf_config_cb_t callback; /**< is told of changes */
} econf_config_cb_info_t;

/** A status that is published; an array of these ends at the first null path. */
typedef struct _econf_status_cb_info {
    const char* path;           /**< as in econf_config_cb_info_t */
    econf_status_cb_t callback; /**< is asked for it */
} econf_status_cb_info_t;

/** An operation that is served; an array of these ends at the first null path. */
typedef struct _econf_operate_cb_info {
    char* path;                  /**< as in econf_config_cb_info_t */
    econf_operate_cb_t callback; /**< carries it out */
} econf_operate_cb_info_t;

/** What a plugin registers. Any member may be null. */
typedef struct _econf_plugin_subpub_info {
    econf_config_cb_info_t* config_cbs;   /**< subscriptions */
    econf_status_cb_info_t* status_cbs;   /**< what it tells the status of */
    econf_operate_cb_info_t* operate_cbs; /**< operations */
    void (*kick_off)(void);               /**< called when the daemon sends "kickoff" */
} econf_plugin_subpub_info_t;

/**
 * Registers the process as a plugin: reads the daemon's profile, connects, announces every path and
 * waits for the daemon's answer, at most 30 s for each event of the socket. Connecting itself waits
 * without a limit while the daemon listens but does not accept and its queue is full.
 *
 * @param name     the plugin's name; copied
 * @param cb_info  read during the call only
 * @return the connected, non-blocking, close-on-exec socket, to be watched for input and hang-up;
 *         it stays the library's and goes with econf_plugin_close(). -1 on failure: bad argument,
 *         a process that is a plugin already (which goes on working), one that has the daemon's
 *         hooks, no daemon, or its refusal; nothing is left behind, and the call may be made again.
 */
CONF_API int econf_plugin_init(const char* name, econf_plugin_subpub_info_t* cb_info);

/**
 * Goes active: from here on the daemon's requests are served and requests may be made. Waits for
 * the daemon's answer, as econf_plugin_init().
 *
 * @param start_mode  an ECONF_PLUGIN_ACTIVATE_MODE; any other value counts as ACTIVATE_WITH_NONE
 * @return 0; -1 when there is no plugin, it is active already, or the daemon did not agree; it
 *         stays as it was
 */
CONF_API int econf_plugin_activate(int start_mode);

/**
 * Goes inactive; the connection stays. Waits for the daemon's answer, as econf_plugin_init(); on
 * failure the plugin stays active.
 *
 * A callback may call it: the request being served is answered still, and econf_plugin_run()
 * returns. What the daemon sent behind its answer to this is neither read nor served meanwhile;
 * like every wait, that of the next activation drops what comes before its answer.
 */
CONF_API void econf_plugin_deactivate(void);

/**
 * Ends the plugin: closes the socket and releases everything, without a word to the daemon. May be
 * called from inside a callback; the request being served then gets no answer. Hooks that the
 * process was given stay.
 */
CONF_API void econf_plugin_close(void);

/**
 * Serves every request that has arrived, one after the other, and returns when the socket holds no
 * more; it never waits for input. Suits level- and edge-triggered readiness alike. The end of the
 * connection is not told from an empty socket: watch for the hang-up yourself.
 *
 * Call it once after econf_plugin_activate() too, and after a request made outside a callback: what
 * came behind the daemon's answer waits in the library, where the descriptor does not show it.
 */
CONF_API void econf_plugin_run(void);

/**
 * Reads the configuration at a data path.
 *
 * This and the requests below wait for the daemon's answer, at most 30 s for each event of the
 * socket, however many signals come; other messages that come meanwhile are dropped. They need an
 * active plugin.
 *
 * When a request fails of which only a part has been written (a large push to a daemon that stops
 * reading), the two no longer agree where messages begin: close the plugin and register again.
 *
 * No answer above 128 MiB is taken.
 *
 * @param old_flag  0 for the current configuration, anything else for the one before the change
 * @param result    receives a new list of sibling nodes, to be given to xmlFreeNodeList(), or null
 *                  when there is nothing or the daemon answered with an error; null on failure
 * @return 0, or -1
 */
CONF_API int econf_plugin_pull(int old_flag, const char* path, xmlNode** result);

/**
 * Reads where a data path stands among its neighbours.
 *
 * @param old_flag  as in econf_plugin_pull()
 * @param position  receives a new list ("prev", "next", with unquoted key values), to be given to
 *                  xmlFreeNodeList(), or null when there is nothing or the daemon answered with an
 *                  error; null on failure
 * @return 0, or -1
 */
CONF_API int econf_plugin_locate(int old_flag, const char* path, xmlNode** position);

/**
 * Hands data to the daemon. Keep it below 128 MiB, where receivers with this library give up.
 *
 * @param data  first of the nodes; it and its following siblings are copied
 * @return 0, or -1: bad argument, no active plugin, or the daemon's refusal
 */
CONF_API int econf_plugin_push(const char* path, xmlNode* data);

/**
 * Changes the deployment store.
 *
 * @param oper  0 adds, 1 deletes, anything else updates
 * @param data  as in econf_plugin_push()
 * @return 0, or -1
 */
CONF_API int econf_plugin_config_deployment(const char* path, int oper, xmlNode* data);

/** Asks the daemon to save the deployment store. @return 0, or -1 */
CONF_API int econf_plugin_save_deployment(void);

/**
 * Asks the daemon to copy between the running configuration and the deployment store.
 *
 * @param override  1 to replace what is there; anything else not to
 * @return 0, or -1
 */
CONF_API int econf_plugin_copy_running_to_deployment(int override);

/**
 * Records the error that answers the request now being served, if its callback fails. Only the last
 * one counts. Nothing is sent by this call. Without an active plugin nothing is recorded, which is
 * reported.
 *
 * Record it only where the callback then fails. When a status or operation callback succeeds all
 * the same, the error stays and answers the next failure, whichever callback that is, unless a
 * successful configuration callback or a kick-off comes between: these drop what is recorded, by
 * whomever.
 *
 * @param err_code  the code; with 0 the request counts as a success and is answered so
 * @param err_msg   the text, copied and never read as a format; null for "Service process failed."
 */
CONF_API void econf_plugin_error(int err_code, const char* err_msg);

/**
 * Sets what the plugin log takes.
 *
 * @param level   highest DBG_* level that is written, 1 to 7; of a negative one none is
 * @param enable  0 turns the log off (level does not matter), anything else on
 * @return 0, or 1 for a level of 0 or above 7: nothing is changed then. A negative one is taken, and
 *         lets nothing through
 */
CONF_API int econf_plugin_config_debug(int level, int enable);

/**
 * Sends the daemon a notification: one datagram, no answer. Waits while the daemon's queue is full.
 *
 * Needs no plugin, but does not read the profile: a process that is neither a plugin nor an agent
 * calls conf_load_config() (conf_plugin.h) first. The three calls may be made from any thread, but
 * not while econf_plugin_init(), conf_agent_init() or conf_load_config() runs, which may write the
 * path that they send to.
 *
 * @param name  for the log only
 * @param data  the element to send, without its siblings; stays the caller's
 * @return 0, or -1
 */
CONF_API int econf_notify(const char* name, xmlNode* data);

/**
 * As econf_notify(), with ready-made text, sent with its terminating zero.
 *
 * @return 0, or -1
 */
CONF_API int conf_notify(char* name, char* data);

/** As conf_notify(), but fails at once when the daemon's queue is full. @return 0, or -1 */
CONF_API int conf_notify_nonblock(char* name, char* data);

/**
 * Turns a schema path into its standard form: key predicates go, and so does a prefix equal to the
 * last one written. A first element without a prefix becomes the prefix of the second.
 *
 *     /net:net/net:interfaces/net:interface[name="eth0"]  ->  /net:net/interfaces/interface
 *
 * @return a new string, to be given to free(); null for null or without memory
 */
CONF_API char* plugin_path_schema2std(const char* schema_path);

/** As plugin_path_schema2std(), for a data path: key predicates stay as they are. */
CONF_API char* plugin_path_data2std(const char* data_path);

/**
 * Turns a path into the form of the database: the standard form with its first ":" (wherever it
 * stands, in a predicate too) made "/".
 *
 * @return a new string, to be given to free(); null for null or without memory
 */
CONF_API char* plugin_path_std2db(const char* data_path);

/** The handle of the older API. It is never read: all calls act on the process's one plugin. */
typedef struct _conf_context {
    int stub; /**< nobody's */
} conf_context_t;

/** A value: a "data" element, or null. */
typedef struct _conf_val_t {
    xmlNode* data; /**< its children are what stands at the path */
} conf_val_t;

/** As econf_config_cb_t, less the session. */
typedef int (*conf_config_cb_t)(int oper, int more, int priority, char* path);
/** As econf_status_cb_t, less the session. */
typedef int (*conf_status_cb_t)(char* path, char* filter, xmlNode** status);
/**
 * As econf_operate_cb_t, less the session; output is one node, whose children are the answer. A
 * node without children is answered with the error "Copy <data> xml node failed."; leave output
 * null when there is nothing to say.
 */
typedef int (*conf_operate_cb_t)(xmlNode* input, xmlNode** output);

/** As econf_config_cb_info_t. */
typedef struct _config_callback {
    char* path;                 /**< null ends the array */
    int priority;               /**< handed back with every change */
    conf_config_cb_t config_cb; /**< is told of changes */
} config_callback_t;

/** As econf_status_cb_info_t. */
typedef struct _status_callback {
    char* path;                 /**< null ends the array */
    conf_status_cb_t status_cb; /**< is asked for the status */
} status_callback_t;

/** As econf_operate_cb_info_t. */
typedef struct _rpc_callback {
    char* rpc_name;           /**< the operation's path; null ends the array */
    conf_operate_cb_t rpc_cb; /**< carries it out */
} rpc_callback_t;

/** Arrays end at the first null path or name; any member may be null. */
typedef struct _conf_plugin_info {
    config_callback_t* config_cbs; /**< subscriptions */
    status_callback_t* status_cbs; /**< what it tells the status of */
    rpc_callback_t* rpc_cbs;       /**< operations */
    void (*kickoff)(void);         /**< called when the daemon sends "kickoff" */
    void (*uninstall)(char*);      /**< never called */
} conf_plugin_info_t;

/**
 * Configuration callbacks that failed during a recovery (CONFIG_OP_CFGR), those of the older API
 * left out; never reset.
 */
CONF_API extern int g_rdb_recovery_status;

/** As econf_plugin_init(). @return a handle that stays the library's, or null */
CONF_API conf_context_t* conf_plugin_init(char* name, conf_plugin_info_t* plugin_info);

/** As econf_plugin_activate(with_cfgr). */
CONF_API int conf_start_session(conf_context_t* ctxt, int with_cfgr);

/** @return the plugin's socket, or -1 when there is none */
CONF_API int conf_plg_get_hconf(conf_context_t* ctxt);

/**
 * Serves requests.
 *
 * @param with_block  0 to serve what has arrived and return; anything else to serve until the
 *                    connection ends or a callback closes the plugin
 * @return 0; -1 when there is no plugin to wait for or the wait cannot be set up
 */
CONF_API int conf_run(conf_context_t* ctxt, int with_block);

/**
 * As econf_plugin_pull(0, path).
 *
 * @return the list, to be given to xmlFreeNodeList(), or null for nothing and failure alike
 */
CONF_API xmlNode* conf_get_config(const char* path);

/** As conf_get_config(), for the configuration before the change. */
CONF_API xmlNode* conf_get_old_config(const char* path);

/** As econf_plugin_push(). */
CONF_API int conf_set_config(const char* path, xmlNode* data);

/** As econf_plugin_error(). @return 0, always */
CONF_API int conf_set_error(int err_code, const char* err_msg);

/**
 * Reads the current value at a path.
 *
 * @param val  val->data receives a new "data" element, to be given to xmlFreeNode(), or null when
 *             there is nothing or it could not be read
 * @return 0; -1 for a null path or val, or without memory
 */
CONF_API int conf_plg_get_value(conf_context_t* ctxt, char* path, conf_val_t* val);

/** As conf_plg_get_value(), for the value before the change. */
CONF_API int conf_plg_get_old_value(conf_context_t* ctxt, char* path, conf_val_t* val);

/** As econf_plugin_push(path, val->data); oper is not used. @return 0, or -1 */
CONF_API int conf_plg_set_value(conf_context_t* ctxt, int oper, char* path, conf_val_t* val);

/** As econf_plugin_error(). @return 0, always */
CONF_API int conf_plg_set_error(conf_context_t* ctxt, int err_code, char* err_msg);

/** @return g_rdb_recovery_status */
CONF_API int conf_recovery_status(void);

/** As econf_plugin_close(). @return 0, always */
CONF_API int conf_plugin_close(conf_context_t* ctxt);

/**
 * Obsolete, and logs so: answers through the daemon's hook, for code that runs inside it.
 *
 * @return what the hook returns; -1 outside the daemon
 */
CONF_API int conf_send_reply(int session_id, xmlNode* rpc, xmlNode* data);

#ifdef __cplusplus
}
#endif

#endif
