/**
 * @file pending.h
 * Whether a request waits in the library, where the descriptor does not show it.
 *
 * A request of the plugin's own, such as econf_plugin_pull(), may read more than its answer. What came
 * behind the answer then waits in the library: a loop that sleeps until the descriptor is readable
 * leaves it there until the daemon sends something else. So whoever drives the plugin asks before each
 * sleep:
 *
 *     if (pelmconf_pending())
 *         econf_plugin_run();
 *
 * The adapters in pelmconf/adapters/ do. Inside a callback nothing needs to be asked: econf_plugin_run()
 * goes on with what has come.
 */
#ifndef PELMCONF_PENDING_H
#define PELMCONF_PENDING_H

#include <conf_buffer.h>
#include <conf_plugin.h>

#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Tells whether econf_plugin_run() would find something to do without reading from the socket.
 *
 * It reads nothing and waits for nothing, and is 0 once econf_plugin_run() has returned, unless a callback
 * has registered the plugin anew. To be asked by the thread that drives the plugin.
 *
 * @return 1 for a whole request, or for bytes that begin none and are to be skipped; 0 otherwise, and
 *         without an active plugin: before it goes active, inside the daemon, in a child made by fork()
 */
CONF_INLINE int pelmconf_pending(void) {
    const conf_plugin_context_t* plugin = get_plugin_context();
    const int head_bytes = sizeof(msg_head_t);
    msg_head_t head;
    long long frame_bytes;
    int bytes;

    if (!plugin || !plugin->bit_activate)
        return 0;
    bytes = conf_buffer_length(plugin->recv_buf);
    if (bytes < head_bytes)
        return 0;
    memcpy(&head, conf_buffer_data(plugin->recv_buf), sizeof head);
    if (head.magic !=
        CONF_MSG_MAGIC) /* it may begin in the last twelve bytes, which therefore stay */
        return bytes > head_bytes;
    frame_bytes = head.length;
    frame_bytes += head_bytes;
    return head.length > CONF_MSG_MAX_LENGTH || frame_bytes <= bytes;
}

#ifdef __cplusplus
}
#endif

#endif
