/**
 * @file glib.h
 * A plugin on GLib's main loop. Needs glib-2.0.
 */
#ifndef PELMCONF_ADAPTERS_GLIB_H
#define PELMCONF_ADAPTERS_GLIB_H

#include "watch.h"

#include <glib.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Nobody else needs to look at what follows, up to the call that attaches. */
/** @cond */
/* The source owns the watch; the context owns the source. */
struct pelmconf_glib {
    GSource source;
    struct pelmconf_watch watch;
    gpointer tag; /* of the watch's descriptor, in the source */
};

/* By way of void*: on 32-bit ARM the watch is aligned to eight bytes, as memory of GLib's is, but GSource
   by itself to four. */
CONF_INLINE struct pelmconf_glib* pelmconf_glib_of(void* source) {
    return (struct pelmconf_glib*)source;
}

CONF_INLINE struct pelmconf_watch* pelmconf_glib_watch(GSource* source) {
    return &pelmconf_glib_of(source)->watch;
}

CONF_INLINE gboolean pelmconf_glib_prepare(GSource* source, gint* timeout_ms) {
    *timeout_ms = -1;
    return pelmconf_watch_is_due(pelmconf_glib_watch(source));
}

CONF_INLINE gboolean pelmconf_glib_check(GSource* source) {
    return g_source_query_unix_fd(source, pelmconf_glib_of(source)->tag) != 0 ||
           pelmconf_watch_is_due(pelmconf_glib_watch(source));
}

CONF_INLINE gboolean pelmconf_glib_dispatch(GSource* source, GSourceFunc callback, gpointer data) {
    (void)callback;
    (void)data;
    pelmconf_watch_step(pelmconf_glib_watch(source));
    return G_SOURCE_CONTINUE;
}

CONF_INLINE void pelmconf_glib_finalize(GSource* source) {
    pelmconf_watch_close(pelmconf_glib_watch(source));
}

CONF_INLINE void pelmconf_glib_release(void* source) { g_source_destroy((GSource*)source); }

/** @endcond */

/**
 * Lets a main context serve the plugin, which is registered, active or not.
 *
 * It lasts until the plugin is closed, by whomever, and then takes itself out before the context sleeps
 * again; the next registration is attached anew. Nothing is to be freed: a context that goes first takes
 * it along. Callbacks run in a source of default priority, and not once more in a main loop that one of
 * them runs.
 *
 * @param context  null for the default one; run by the thread that drives the plugin
 * @param on_lost  called when the daemon has gone: once, after the plugin was closed. It may register and
 *                 attach anew, and must not throw. May be null
 * @return 0; -1 with errno set, ENOTCONN without a plugin. Like all of GLib, it ends the process without
 *         memory
 */
CONF_INLINE int pelmconf_glib_attach(GMainContext* context, void (*on_lost)(void)) {
    static GSourceFuncs functions = {pelmconf_glib_prepare,
                                     pelmconf_glib_check,
                                     pelmconf_glib_dispatch,
                                     pelmconf_glib_finalize,
                                     NULL,
                                     NULL};
    struct pelmconf_watch watch;
    struct pelmconf_glib* self;

    if (pelmconf_watch_open(&watch, on_lost, pelmconf_glib_release, NULL) < 0)
        return -1;
    self = pelmconf_glib_of(g_source_new(&functions, sizeof *self));
    self->watch = watch;
    self->watch.adapter = self;
    self->tag = g_source_add_unix_fd(&self->source, watch.fd, G_IO_IN);
    g_source_set_name(&self->source, "pelmconf");
    (void)g_source_attach(&self->source, context);
    g_source_unref(&self->source);
    return 0;
}

#ifdef __cplusplus
}
#endif

#endif
