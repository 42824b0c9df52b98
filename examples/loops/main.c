/*
 * The plugin of ../plugin.c on an event loop, whichever: here with GLib's.
 *   cc -Dmain=plugin_main -c ../plugin.c $(pkg-config --cflags pelmconf)
 *   cc -o interfaces main.c glib.c plugin.o $(pkg-config --cflags --libs pelmconf glib-2.0)
 *
 * It outlives the daemon, and tells systemd when it is ready and that it is alive.
 */
#include "loop.h"

#include <conf_api.h>
#include <conf_debug.h>
#include <pelmconf/notify.h>

#include <signal.h>
#include <stdio.h>

enum { first_delay_ms = 100, longest_delay_ms = 10000, alive_ms = 10000 };

extern econf_plugin_subpub_info_t interfaces; /* of plugin.c */

static int delay_ms = first_delay_ms;

static void daemon_lost(void);

/* Either call may take 30 s when the daemon is silent, hence the word in between. */
static int register_plugin(void) {
    if (econf_plugin_init("interfaces", &interfaces) < 0)
        return -1;
    (void)pelmconf_notify_alive();
    if (econf_plugin_activate(ACTIVATE_WITH_CFGR) == 0 && loop_attach(daemon_lost) == 0)
        return 0;
    econf_plugin_close();
    return -1;
}

static void say_alive(void) {
    (void)pelmconf_notify_alive();
    loop_after(alive_ms, say_alive);
}

static void begin(void) {
    if (register_plugin() == 0) {
        delay_ms = first_delay_ms;
        (void)pelmconf_notify_ready();
        say_alive();
        loop_asked(); /* requests may have come with an answer */
        return;
    }
    (void)pelmconf_notify_alive();
    loop_after(delay_ms, begin);
    delay_ms = delay_ms < longest_delay_ms / 2 ? delay_ms * 2 : longest_delay_ms;
}

static void daemon_lost(void) { loop_after(delay_ms, begin); }

static void end(void) {
    econf_plugin_close();
    loop_asked();
    loop_stop();
}

int main(void) {
    (void)signal(SIGPIPE, SIG_IGN); /* a dying daemon must not take this process with it */
    (void)setvbuf(stdout, NULL, _IOLBF, 0);
    econf_plugin_config_debug(DBG_ERROR, 1);
    return loop_run(begin, end);
}
