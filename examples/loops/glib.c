/* GLib's main loop. */
#include "loop.h"

#include <glib-unix.h>
#include <pelmconf/adapters/glib.h>
#include <signal.h>

static GMainLoop* loop;
static guint timer;
static void (*on_time)(void);
static void (*on_end)(void);

static gboolean timed(gpointer data) {
    (void)data;
    timer = 0;
    on_time();
    return G_SOURCE_REMOVE;
}

static gboolean terminated(gpointer data) {
    (void)data;
    on_end();
    return G_SOURCE_CONTINUE;
}

int loop_run(void (*begin)(void), void (*end)(void)) {
    loop = g_main_loop_new(NULL, FALSE);
    on_end = end;
    (void)g_unix_signal_add(SIGTERM, terminated, NULL);
    begin();
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
    return 0;
}

int loop_attach(void (*on_lost)(void)) { return pelmconf_glib_attach(NULL, on_lost); }

void loop_asked(void) {}

void loop_after(int ms, void (*then)(void)) {
    if (timer != 0)
        (void)g_source_remove(timer);
    on_time = then;
    timer = g_timeout_add((guint)ms, timed, NULL);
}

void loop_stop(void) { g_main_loop_quit(loop); }
