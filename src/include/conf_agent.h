/**
 * @file conf_agent.h
 * An agent's door: its connection to the daemon, the daemon's socket for agents, and the builders
 * of an agent's requests.
 *
 * Failures are reported to syslog, those of the profile to the plugin log (conf_debug.h).
 */
#ifndef CONF_AGENT_H
#define CONF_AGENT_H

#include "conf_buffer.h"
#include "conf_def.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Reads the daemon's profile and connects to its agent socket.
 *
 * @return a blocking, close-on-exec stream socket, the caller's, to be given to conf_agent_exit();
 *         -1 on failure. Writing to it when the daemon has gone raises SIGPIPE unless the process
 *         ignores it.
 */
CONF_API int conf_agent_init(void);

/** Closes the connection; -1 for none. */
CONF_API void conf_agent_exit(int sock);

/**
 * Makes the daemon's socket for agents at g_conf_agent_socket, in place of any file there: a
 * listening, non-blocking, close-on-exec stream socket with mode 0660 and the group "sudo" where
 * there is one. The profile is not read: call conf_load_config() first. The process's umask is
 * changed for a moment: call it before other threads create files.
 *
 * @return the descriptor, to be given to conf_agent_service_disable(); -1 on failure, which may
 *         leave the file there: the next call replaces it
 */
CONF_API int conf_agent_service_enable(void);

/** Closes the socket (-1 for none) and removes its file. */
CONF_API void conf_agent_service_disable(int sock);

/**
 * Appends the request that opens a session: it names the login of the process's real user and the
 * parent process.
 *
 * @param buffer   handle of the caller's outbound buffer, which may move; exactly as before on
 *                 failure
 * @param msg_seq  goes into "message-id" in full and into the frame's seq cut to 16 bits
 * @return 0, or -1: null buffer, unknown user, or no memory
 */
CONF_API int conf_agent_build_session(conf_buffer_t** buffer, int msg_seq);

/**
 * Appends the request for notifications; its "message-id" is always "subscribeNotification_1".
 *
 * @param buffer  as in conf_agent_build_session()
 * @param seq     goes into the frame's seq cut to 16 bits
 * @return 0, or -1
 */
CONF_API int conf_agent_build_notify_rpc(conf_buffer_t** buffer, int seq);

/**
 * Appends the request for the daemon's capabilities.
 *
 * @param buffer   as in conf_agent_build_session()
 * @param msg_seq  as in conf_agent_build_session()
 * @return 0, or -1
 */
CONF_API int conf_agent_build_capability(conf_buffer_t** buffer, int msg_seq);

#ifdef __cplusplus
}
#endif

#endif
