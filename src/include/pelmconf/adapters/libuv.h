/**
 * @file libuv.h
 * A plugin on a loop of libuv.
 */
#ifndef PELMCONF_ADAPTERS_LIBUV_H
#define PELMCONF_ADAPTERS_LIBUV_H

#include "watch.h"

#include <stdlib.h>
#include <uv.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Nobody else needs to look at what follows, up to the call that attaches. */
/** @cond */
/* Freed when the last of its handles is closed. */
struct pelmconf_uv {
    struct pelmconf_watch watch;
    uv_poll_t ready;
    uv_prepare_t before;
    uv_idle_t awake; /* as long as it is active, the loop does not sleep */
    int handles;     /* that are not closed yet */
};

CONF_INLINE void pelmconf_uv_closed(uv_handle_t* handle) {
    struct pelmconf_uv* self = (struct pelmconf_uv*)handle->data;
    if (--self->handles == 0)
        free(self);
}

CONF_INLINE void pelmconf_uv_release(void* adapter) {
    struct pelmconf_uv* self = (struct pelmconf_uv*)adapter;
    uv_close((uv_handle_t*)&self->ready, pelmconf_uv_closed);
    uv_close((uv_handle_t*)&self->before, pelmconf_uv_closed);
    uv_close((uv_handle_t*)&self->awake, pelmconf_uv_closed);
    pelmconf_watch_close(&self->watch);
}

CONF_INLINE void pelmconf_uv_ready(uv_poll_t* handle, int status, int events) {
    (void)status;
    (void)events;
    pelmconf_watch_step(&((struct pelmconf_uv*)handle->data)->watch);
}

CONF_INLINE void pelmconf_uv_awake(uv_idle_t* handle) { (void)handle; }

/* Whoever waits for a single event by UV_RUN_ONCE is not to sleep once it has been served here. */
CONF_INLINE void pelmconf_uv_before(uv_prepare_t* handle) {
    struct pelmconf_uv* self = (struct pelmconf_uv*)handle->data;
    if (!pelmconf_watch_is_due(&self->watch)) {
        (void)uv_idle_stop(&self->awake);
        return;
    }
    (void)uv_idle_start(&self->awake, pelmconf_uv_awake);
    pelmconf_watch_step(&self->watch);
}

/** @endcond */

/**
 * Lets a loop serve the plugin, which is registered, active or not.
 *
 * It lasts until the plugin is closed, by whomever, and then takes itself out before the loop sleeps
 * again; the next registration is attached anew. Nothing is to be freed, but uv_loop_close() succeeds only
 * once the loop has run so far: behind econf_plugin_close(), let it end by itself. Until the plugin is
 * closed, it keeps the loop running.
 *
 * A prepare handle of one's own that was started before must make no requests: it runs behind this one.
 *
 * @param loop     run by the thread that drives the plugin
 * @param on_lost  called when the daemon has gone: once, after the plugin was closed. It may register and
 *                 attach anew, and must not throw. May be null
 * @return 0; -1 with errno set: ENOTCONN without a plugin, ENOMEM, or why libuv refuses
 */
CONF_INLINE int pelmconf_uv_attach(uv_loop_t* loop, void (*on_lost)(void)) {
    struct pelmconf_uv* self = (struct pelmconf_uv*)malloc(sizeof *self);
    int status;

    if (!self || pelmconf_watch_open(&self->watch, on_lost, pelmconf_uv_release, self) < 0) {
        free(self);
        return -1;
    }
    status = uv_poll_init(loop, &self->ready, self->watch.fd);
    if (status < 0) {
        pelmconf_watch_close(&self->watch);
        free(self);
        errno = -status;
        return -1;
    }
    (void)uv_prepare_init(loop, &self->before);
    (void)uv_idle_init(loop, &self->awake);
    self->handles = 3;
    self->ready.data = self->before.data = self->awake.data = self;
    (void)uv_prepare_start(&self->before, pelmconf_uv_before);
    /* Attached by another prepare handle, this one has yet to look. */
    (void)uv_idle_start(&self->awake, pelmconf_uv_awake);
    (void)uv_poll_start(&self->ready, UV_READABLE, pelmconf_uv_ready);
    return 0;
}

#ifdef __cplusplus
}
#endif

#endif
