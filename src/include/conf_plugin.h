/**
 * @file conf_plugin.h
 * The daemon's door: the plugin records and their registry, the messages, the daemon's profile and
 * its endpoints.
 *
 * Failures are reported to the plugin log (conf_debug.h). No call takes a lock.
 */
#ifndef CONF_PLUGIN_H
#define CONF_PLUGIN_H

#include "conf_buffer.h"
#include "conf_def.h"
#include "conf_hash.h"

#include <libxml/tree.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Any callback; called through its real type. */
typedef int (*econf_subpub_cb_t)(int);

/** A plugin that is a process of its own. The field order is fixed; slot kinds live elsewhere. */
CONF_FLEXIBLE_BEGIN
typedef struct _conf_plugin_context {
    int version;             /**< 2, or 1 for a plugin of the older API */
    char* name;              /**< its own copy */
    u32_t bit_activate : 1;  /**< 1 while active */
    int sock;                /**< the connection, -1 when none */
    u16_t rpc_id;            /**< id of the next request; 1 to 65535 */
    int err_code;            /**< error for the next answer; 0 for none */
    char* err_msg;           /**< its text: null, a fixed default, or an owned string */
    u32_t send_pos;          /**< bytes of the first frame in send_buf already written */
    conf_buffer_t* recv_buf; /**< what came and was not served yet */
    conf_buffer_t* send_buf; /**< frames to be sent */
    u32_t cbs_nums;          /**< slots in use, slot 0 included */
    econf_subpub_cb_t cbs[]; /**< slot 0: kick-off; then the callbacks in order */
} conf_plugin_context_t;
CONF_FLEXIBLE_END

/** The hooks of a plugin that runs inside the daemon; any may be null. None may throw. */
typedef struct _pelmd_plugin_callback {
    /** For econf_plugin_locate(). What position leads to is null when it is called; what is stored
     *  there becomes the caller's: new nodes. A hook that fails (not 0) must store none: its caller
     *  is given null all the same. */
    int (*conf_plugin_locate)(bool_t old_flag, const char* path, xmlNode** position);
    /** For econf_plugin_pull(), as conf_plugin_locate. */
    int (*conf_plugin_pull)(bool_t old_flag, const char* path, xmlNode** result);
    /** For econf_plugin_push(). The data is its caller's own: copy what is to stay. */
    int (*conf_plugin_push)(const char* path, xmlNode* data);
    /** For econf_plugin_config_deployment(). The data as in conf_plugin_push. */
    int (*conf_plugin_config_deployment)(const char* path, int oper, xmlNode* data);
    /** For econf_plugin_save_deployment(). */
    int (*conf_plugin_save_deployment)(void);
    /** For econf_plugin_copy_running_to_deployment(). */
    int (*conf_plugin_copy_running_to_deployment)(int override);
    /** For econf_plugin_error(). */
    void (*conf_plugin_error)(int err_code, const char* err_msg);
    /** For conf_send_reply(). */
    int (*conf_plugin_reply)(int session_id, xmlNode* rpc, xmlNode* data);
} pelmd_plugin_callback_t;

/** A process's entry in the registry. It lies there at any address, hence packed. */
typedef struct __attribute__((packed)) _conf_plugin_data {
    conf_plugin_context_t* plugin_ctxt;   /**< a plugin of its own process, or null */
    pelmd_plugin_callback_t* pelmd_hooks; /**< a plugin inside the daemon, or null */
} conf_plugin_data;

/** The registry; made on first use, never destroyed. */
CONF_API extern conf_hash_tbl_t* g_plugin_hash;

/**
 * Finds the calling process's entry, making an empty one when there is none.
 *
 * @return the registry's own record, valid until it is deleted; null without memory
 */
CONF_API conf_plugin_data* get_plugin_from_hash(void);

/** Removes the calling process's entry; what it points to is not released. */
CONF_API void del_plugin_from_hash(void);

/** @return the entry's hooks, or null; makes the entry like get_plugin_from_hash() */
CONF_API pelmd_plugin_callback_t* get_plugin_hooks(void);

/** @return the entry's context, or null; makes the entry like get_plugin_from_hash() */
CONF_API conf_plugin_context_t* get_plugin_context(void);

/**
 * Makes the calling process a plugin inside the daemon: from here on the plugin API calls these
 * hooks. Once per process, before plugin code runs. They stay until the process ends; where it has
 * registered as a plugin of its own before, that one goes on until it is closed.
 *
 * @param api  copied whole
 * @return 0; -1 for null, for a process that has hooks already (they stay), or without memory
 */
CONF_API int conf_plugin_init_api(pelmd_plugin_callback_t* api);

/**
 * Builds a request: "rpc" with "method", the parameters and "id". Texts are escaped as XML; bytes
 * that XML does not allow (control characters, malformed UTF-8) are written as they are.
 *
 * @param params  becomes the request's in every case: wiped and freed on failure. It is taken out
 *                of the tree it stands in; a node of a parsed document is replaced by a copy, so
 *                the document must live during the call
 * @param id      a plugin's: 1 to 65535; a daemon's: best above these, 2147483647 at most
 * @return the tree, to be given to xmlFreeNode(); null for a null argument or without memory
 */
CONF_API xmlNode* plugin_build_rpc_message(const char* method, xmlNode* params, u32_t id);

/**
 * Builds an answer: "reply" with the outcome and "id".
 *
 * @param result  a "result" or "error" element; becomes the answer's in every case, as above: freed
 *                on failure
 * @param id      the id of the request being answered
 * @return the tree, to be given to xmlFreeNode(); null for a null argument or without memory
 */
CONF_API xmlNode* plugin_build_reply_message(xmlNode* result, u32_t id);

/**
 * Cuts one frame off the front of a receive buffer and parses its body, as UTF-8 and without the
 * white space between elements. Of bodies over 10,000,000 bytes libxml2 refuses some; before its
 * release 2.11 those without markup within their last 500.
 *
 * @param buf  handle of a buffer that begins with a complete frame, which is removed in every case;
 *             the mark of the header is not looked at. A buffer without a complete frame is left
 *             alone.
 * @return the body's root element, to be given to xmlFreeNode(); null when it is no XML, or without
 *         memory
 */
CONF_API xmlNode* plugin_parse_message(conf_buffer_t** buf);

/**
 * Splits a request. The last "method" and the last "params" count.
 *
 * @param method  receives the method's name, which stays the tree's
 * @param params  receives the element, which stays the tree's
 * @return 0; -1 for a null argument, or when either is missing
 */
CONF_API int plugin_parse_rpc(xmlNode* rpc, const char** method, xmlNode** params);

/**
 * Splits an answer: exactly one of "result" and "error" must be there.
 *
 * @param result  receives the element, which stays the tree's, or null
 * @param error   receives the element, which stays the tree's, or null
 * @return 0; -1 for a null argument, or when both or neither are there
 */
CONF_API int plugin_parse_reply(xmlNode* reply, xmlNode** result, xmlNode** error);

/** @return the number in the first "id" of a request or an answer; 0 when there is none */
CONF_API u32_t plugin_get_msgid(xmlNode* root);

/** @return the number in the first "code" of an "error"; -1 when there is none */
CONF_API int plugin_get_reply_errcode(xmlNode* error);

/** @return the text of the first "message" of an "error", the tree's own, or null for none */
CONF_API const char* plugin_get_reply_errmsg(xmlNode* error);

/** The path of the agents' socket: a default until conf_load_config() finds another. */
CONF_API extern char g_conf_agent_socket[256];
/** The path of the plugins' socket, likewise. */
CONF_API extern char g_conf_plugin_socket[256];
/** The path of the socket for notifications, likewise. */
CONF_API extern char g_conf_notifier_socket[256];

/**
 * Reads the daemon's profile, /mnt/squash/local/etc/pelmd/pelmd.conf: a JSON object whose member
 * "working-dir" names the directory of the sockets.
 *
 * @param workding_dir  null, or where to store a copy of the directory, to be given to free(); what
 *                      is stored there already is freed. Untouched when the profile names none.
 * @return 0, also for a profile without "working-dir"; -1 when there is no valid profile, or the
 *         directory is so long that a socket's path would not fit an address (107 characters).
 *         Paths and *workding_dir are then as before.
 */
CONF_API int conf_load_config(char** workding_dir);

/**
 * Makes the daemon's socket for plugins at g_conf_plugin_socket, in place of any file there: a
 * listening, non-blocking, close-on-exec stream socket with mode 0660. The profile is not read:
 * call conf_load_config() first. The process's umask is changed for a moment: call it before other
 * threads create files.
 *
 * @return the descriptor, to be given to conf_plugin_service_disable(); -1 on failure, which may
 *         leave the file there: the next call replaces it
 */
CONF_API int conf_plugin_service_enable(void);

/** Closes the socket (-1 for none) and removes its file. */
CONF_API void conf_plugin_service_disable(int sock);

/**
 * Makes the daemon's socket for notifications at g_conf_notifier_socket, like
 * conf_plugin_service_enable() (the profile is not read), as a datagram socket with a receive
 * buffer of 5120 bytes.
 *
 * @return the descriptor, to be given to conf_plugin_notifier_disable(); -1 on failure, as above
 */
CONF_API int conf_plugin_notifier_enable(void);

/** Closes the socket (-1 for none) and removes its file. */
CONF_API void conf_plugin_notifier_disable(int sock);

#ifdef __cplusplus
}
#endif

#endif
