/**
 * @file watch.h
 * What all adapters share, for whoever writes one: a watch on the process's plugin.
 *
 * A watch has a descriptor of its own, readable when the daemon has sent something or is gone. So the
 * loop never watches the plugin's socket, whose number may be somebody else's as soon as
 * econf_plugin_close() has been called, in a callback perhaps. A watch lasts as long as the connection
 * that it was made for. An adapter
 *
 * - lets its loop wait until the watch's descriptor is readable, and then calls pelmconf_watch_step();
 * - before the loop sleeps, asks pelmconf_watch_is_due(), and if so does not sleep, but steps as well;
 * - has a function that takes all of this back, which a step calls when the watch is over.
 *
 * One thread drives the plugin and the loop that it is attached to. A child made by fork() has no
 * plugin; it leaves the loop that it inherited alone.
 */
#ifndef PELMCONF_ADAPTERS_WATCH_H
#define PELMCONF_ADAPTERS_WATCH_H

#include <pelmconf/pending.h>

#include <conf_api.h>
#include <conf_plugin.h>

#include <errno.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A watch on one connection. An adapter reads fd and leaves the rest alone. */
struct pelmconf_watch {
    int fd;                         /**< its own, to wait for input at */
    dev_t device;                   /**< with inode: which socket the connection is */
    ino_t inode;                    /**< a number alone may be taken by another one */
    void (*on_lost)(void);          /**< may be null */
    void (*release)(void* adapter); /**< takes the adapter out of its loop and closes the watch */
    void* adapter;                  /**< for release */
};

/**
 * Begins to watch the plugin, which is registered, active or not.
 *
 * @param watch    the caller's, and all of it is filled in
 * @param on_lost  called when the daemon has gone: once, after the plugin was closed. It must not throw, as
 *                 loops are C. May be null
 * @param release  called by pelmconf_watch_step() when the watch is over; it calls
 *                 pelmconf_watch_close(), and may free the watch itself
 * @param adapter  handed to release
 * @return 0; -1 with errno set, ENOTCONN without a plugin: nothing is to be closed then
 */
CONF_INLINE int pelmconf_watch_open(struct pelmconf_watch* watch, void (*on_lost)(void),
                                    void (*release)(void* adapter), void* adapter) {
    const conf_plugin_context_t* plugin = get_plugin_context();
    struct epoll_event event;
    struct stat connection;

    if (!plugin) {
        errno = ENOTCONN;
        return -1;
    }
    if (fstat(plugin->sock, &connection) < 0)
        return -1;
    watch->device = connection.st_dev;
    watch->inode = connection.st_ino;
    watch->on_lost = on_lost;
    watch->release = release;
    watch->adapter = adapter;
    watch->fd = epoll_create1(EPOLL_CLOEXEC);
    if (watch->fd < 0)
        return -1;
    /* Each arrival is told once: econf_plugin_run() reads all, and an inactive plugin nothing. */
    memset(&event, 0, sizeof event);
    event.events = EPOLLIN | EPOLLRDHUP | EPOLLET;
    if (epoll_ctl(watch->fd, EPOLL_CTL_ADD, plugin->sock, &event) == 0)
        return 0;
    (void)close(watch->fd);
    return -1;
}

/** Closes the watch's descriptor, which no loop may be watching any more. The plugin stays. */
CONF_INLINE void pelmconf_watch_close(struct pelmconf_watch* watch) { (void)close(watch->fd); }

/** @return 1 when the plugin was closed, even if another one is registered since; 0 otherwise */
CONF_INLINE int pelmconf_watch_is_over(const struct pelmconf_watch* watch) {
    const conf_plugin_context_t* plugin = get_plugin_context();
    struct stat connection;

    return !plugin || fstat(plugin->sock, &connection) < 0 || connection.st_dev != watch->device ||
           connection.st_ino != watch->inode;
}

/** @return 1 when the loop must not sleep, but step, though the descriptor may show nothing; 0 otherwise */
CONF_INLINE int pelmconf_watch_is_due(const struct pelmconf_watch* watch) {
    return pelmconf_watch_is_over(watch) || pelmconf_pending();
}

/**
 * Does what there is to do: serves requests; when the plugin was closed, releases the adapter; when the
 * daemon has gone, releases it, closes the plugin and calls on_lost. Harmless when there is nothing.
 *
 * Callbacks run in it. It does not touch the watch behind them, which may be gone by then.
 */
CONF_INLINE void pelmconf_watch_step(struct pelmconf_watch* watch) {
    void (*on_lost)(void) = watch->on_lost;
    struct epoll_event event;
    uint32_t events;

    if (pelmconf_watch_is_over(watch)) {
        watch->release(watch->adapter);
        return;
    }
    events = epoll_wait(watch->fd, &event, 1, 0) == 1 ? event.events : 0;
    if ((events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) {
        watch->release(watch->adapter);
        econf_plugin_close();
        if (on_lost)
            on_lost();
    } else if (pelmconf_pending() || (events != 0 && get_plugin_context()->bit_activate)) {
        econf_plugin_run();
    }
}

#ifdef __cplusplus
}
#endif

#endif
