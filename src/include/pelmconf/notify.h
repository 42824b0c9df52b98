/**
 * @file notify.h
 * Tells systemd that the process is ready, or alive, without libsystemd: for units of Type=notify, and
 * with WatchdogSec=.
 *
 * Each call is one datagram to the socket that NOTIFY_SOCKET names. Any thread may call them while none
 * changes the environment.
 */
#ifndef PELMCONF_NOTIFY_H
#define PELMCONF_NOTIFY_H

#include <conf_def.h>

#include <errno.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Sends a state. @return 1 when it was sent, 0 when nobody has asked for it, -1 with errno set */
CONF_INLINE int pelmconf_notify(const char* state) {
    const char* name = getenv("NOTIFY_SOCKET");
    const socklen_t start = offsetof(struct sockaddr_un, sun_path);
    union {
        struct sockaddr any;
        struct sockaddr_un local;
    } address;
    socklen_t length;
    ssize_t sent;
    int sock, reason;

    if (!name || name[0] == '\0')
        return 0;
    memset(&address, 0, sizeof address);
    address.local.sun_family = AF_UNIX;
    for (length = 0; name[length] != '\0' && length < sizeof address.local.sun_path; length++)
        address.local.sun_path[length] = name[length];
    if ((name[0] != '/' && name[0] != '@') || length == sizeof address.local.sun_path) {
        errno = EINVAL;
        return -1;
    }
    if (name[0] == '@') /* an abstract address, which begins with a zero and has none at its end */
        address.local.sun_path[0] = '\0';
    sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sock < 0)
        return -1;
    sent = sendto(sock, state, strlen(state), MSG_NOSIGNAL, &address.any, start + length);
    reason = errno;
    (void)close(sock);
    errno = reason;
    return sent < 0 ? -1 : 1;
}

/** Says once that start-up is over: the plugin is active. @return as pelmconf_notify() */
CONF_INLINE int pelmconf_notify_ready(void) { return pelmconf_notify("READY=1"); }

/** Says that the loop turns, which WatchdogSec= wants to hear more often than that. @return as above */
CONF_INLINE int pelmconf_notify_alive(void) { return pelmconf_notify("WATCHDOG=1"); }

#ifdef __cplusplus
}
#endif

#endif
