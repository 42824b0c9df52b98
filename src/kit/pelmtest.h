/**
 * @file pelmtest.h
 * A kit for tests of a plugin's callbacks. They are called in the test's own process, some tens of
 * microseconds each, under whatever sanitizer or debugger the test runs under.
 *
 * The kit is the daemon that the plugin lives in: it has a configuration that tests change, and what
 * callbacks ask of the daemon goes to its hooks (conf_plugin_init_api() in conf_plugin.h). What it
 * asks of the plugin goes through econf_plugin_run(), as in a process of its own; so an answer is what
 * a daemon would get.
 *
 * What is not tried here is main(): registration, waiting, the daemon's coming and going. That is for
 * scripts that run the whole program on pelmsim.
 *
 * Notifications are caught: until pelmtest_end(), g_conf_notifier_socket names a socket that lies at
 * no place of the file system. It is made in TMPDIR, or /tmp, and taken out of there at once. A thread
 * of the kit's empties it, so that no notification waits; it never runs code of the plugin's.
 *
 * Once the kit has begun, the process has a daemon's hooks for good, and econf_plugin_init() is refused.
 * One thread at a time may call the kit, and no callback. A child made by fork(), such as a death test,
 * may go on with it.
 * A test is linked with one libpelmconf, the shared or the static one, behind the kit.
 *
 * Texts and nodes that are handed out stay the kit's, and are valid until its next call, unless it says
 * otherwise.
 */
#ifndef PELMTEST_H
#define PELMTEST_H

#include "conf_api.h"

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/** How a request came out. */
typedef enum _pelmtest_outcome {
    PELMTEST_OK = 0,        /**< everybody who was asked agreed, or answered */
    PELMTEST_ERROR = 1,     /**< refused: see pelmtest_code() and pelmtest_text() */
    PELMTEST_UNHEARD = 2,   /**< no callback is concerned: none was called */
    PELMTEST_NO_ANSWER = 3, /**< a callback closed its plugin, and so answered nothing */
    PELMTEST_MISTAKE = 4    /**< the test's own: nothing was asked, pelmtest_text() says why */
} pelmtest_outcome_t;

/** What is kept of the last request, a line for each. */
typedef enum _pelmtest_event {
    /** A configuration callback: "/a/b[k=\"x\"] mod: ok", "/a rm|rollback: ok". */
    PELMTEST_TOLD = 0,
    /** "/a/b", or "old /a/b" */
    PELMTEST_PULLED = 1,
    /** "/a/b", or "old /a/b" */
    PELMTEST_LOCATED = 2,
    /** "/a/b <v>1</v>" */
    PELMTEST_PUSHED = 3,
    /** "add /a <b/>", "delete ...", "update ...", "save", "copy", "override" */
    PELMTEST_DEPLOYED = 4,
    /** conf_send_reply(): "1 <rpc/> <data/>" */
    PELMTEST_REPLIED = 5,
    /** The text of a notification as it was sent, less a terminating zero. */
    PELMTEST_NOTIFIED = 6
} pelmtest_event_t;

/** The kit's trees. */
typedef enum _pelmtest_tree {
    PELMTEST_CURRENT = 0,
    PELMTEST_OLD = 1, /**< before the last change */
    PELMTEST_DEPLOYMENT = 2
} pelmtest_tree_t;

/**
 * Begins a test: the configuration is empty, and these callbacks are the plugin, which is active. What
 * an earlier test left is forgotten, so pelmtest_end() need not have been called.
 *
 * @param tables  as for econf_plugin_init(); read during the call only
 * @return PELMTEST_OK; PELMTEST_MISTAKE for null, a path that is none, a process that is a plugin already
 *         or has another daemon's hooks, or when no sockets can be had
 */
pelmtest_outcome_t pelmtest_begin(const econf_plugin_subpub_info_t* tables);

/** As pelmtest_begin(), for a plugin of the older API. */
pelmtest_outcome_t pelmtest_begin_legacy(const conf_plugin_info_t* tables);

/** Ends the test and releases everything but the hooks. Does nothing where none has begun. */
void pelmtest_end(void);

/**
 * Puts data into the current and the old configuration, and tells nobody.
 *
 * @param path  where; "/" for the whole configuration
 * @param xml   elements with the name that the path ends in, or the content of the one that stands there:
 *              "<mtu>1500</mtu>", "1500" or "", with markup escaped. What is missing above is made
 * @return PELMTEST_OK, or PELMTEST_MISTAKE for a path or an XML that is none
 */
pelmtest_outcome_t pelmtest_given(const char* path, const char* xml);

/**
 * Publishes the whole configuration, as a daemon does when a plugin goes active; the old one is empty
 * meanwhile. Who refuses is not told to roll back.
 *
 * @param start_mode  ACTIVATE_WITH_CFGR or ACTIVATE_WITH_SMOOTH
 * @return the last refusal, or PELMTEST_OK; PELMTEST_UNHEARD, PELMTEST_MISTAKE for another mode
 */
pelmtest_outcome_t pelmtest_recover(int start_mode);

/**
 * Changes the configuration and tells the callbacks whose paths are concerned, in the order of their
 * priorities. At the first that refuses, the change is taken back: those that had agreed are told to
 * roll back, the last first.
 *
 * @param path, xml  as for pelmtest_given()
 * @return PELMTEST_OK when all have agreed; PELMTEST_ERROR or PELMTEST_NO_ANSWER of the one that did not,
 *         the configuration is as before; PELMTEST_UNHEARD when nothing is different or nobody is
 *         concerned, the change stays; PELMTEST_MISTAKE
 */
pelmtest_outcome_t pelmtest_set(const char* path, const char* xml);

/** As pelmtest_set(), but PELMTEST_MISTAKE when something stands at the path. */
pelmtest_outcome_t pelmtest_add(const char* path, const char* xml);

/** As pelmtest_set(), but takes out what stands at the path; PELMTEST_MISTAKE when nothing does. */
pelmtest_outcome_t pelmtest_delete(const char* path);

/**
 * Tells of a path whatever the configuration says: all callbacks of that path, or of one above it.
 *
 * @param oper  CONFIG_OP_* bits, handed on as they are
 * @return as pelmtest_recover()
 */
pelmtest_outcome_t pelmtest_publish(const char* path, int oper);

/**
 * Asks for a status, of the callback whose path is nearest: the path's own, or one above it.
 *
 * @param filter  handed on; null or empty for none
 * @return PELMTEST_OK, and pelmtest_output() has what was answered; PELMTEST_ERROR,
 *         PELMTEST_UNHEARD, PELMTEST_NO_ANSWER, PELMTEST_MISTAKE
 */
pelmtest_outcome_t pelmtest_status(const char* path, const char* filter);

/**
 * Asks for an operation, of the callback that is found as for pelmtest_status().
 *
 * @param input  XML, or null for none
 * @return as pelmtest_status(); one that hands back nothing is answered "<ok/>"
 */
pelmtest_outcome_t pelmtest_operate(const char* path, const char* input);

/** Sends a kick-off. @return PELMTEST_OK, also without such a callback; PELMTEST_NO_ANSWER */
pelmtest_outcome_t pelmtest_kick_off(void);

/** @return the code of the last request's error; 0 when it was none */
int pelmtest_code(void);

/** @return the text of the last request's error, or why it is no success; otherwise "" */
const char* pelmtest_text(void);

/** @return all of that, for messages: "ok", "error 22 (The MTU must be 68 at least.)" */
const char* pelmtest_said(void);

/** @return the first of the nodes that were answered, with siblings behind it; null for none */
const xmlNode* pelmtest_output(void);

/** @return the same as one line of XML; "" for none */
const char* pelmtest_xml(void);

/** @return what stands at a path, as one line of XML; "" for nothing, and for a path that is none */
const char* pelmtest_tree(pelmtest_tree_t which, const char* path);

/**
 * Tells what was seen since the last request began, also outside of callbacks.
 *
 * @param index  0 for the first of its kind
 * @return the line, valid until the next request; null when there are no more
 */
const char* pelmtest_seen(pelmtest_event_t kind, size_t index);

#ifdef __cplusplus
}
#endif

#endif
