/*
 * Registers the callbacks of sample-plugin.c and serves the daemon until it hangs up; then whoever has
 * started this process starts it again.
 */
#include <conf_api.h>
#include <conf_debug.h>

#include <signal.h>
#include <stdio.h>

extern conf_plugin_info_t callbacks; /* of sample-plugin.c */

int main(void) {
    char name[] = "sample-plugin";

    (void)signal(SIGPIPE, SIG_IGN); /* a dying daemon must not take this process with it */
    (void)setvbuf(stdout, NULL, _IOLBF, 0);
    econf_plugin_config_debug(DBG_ERROR, 1);

    conf_context_t* plugin = conf_plugin_init(name, &callbacks);
    if (plugin == NULL || conf_start_session(plugin, ACTIVATE_WITH_CFGR) < 0) {
        (void)fprintf(stderr,
                      "The daemon did not take the plugin; /var/log/conf_plugin.log says why.\n");
        return 1;
    }
    conf_run(plugin, 1);
    conf_plugin_close(plugin);
    return 0;
}
