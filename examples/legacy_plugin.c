/*
 * A plugin written for the older API. It takes the host name, tells how long it has been running,
 * and repeats what it is told.
 */
#include <conf_api.h>
#include <conf_debug.h>
#include <conf_misc.h>

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

enum { longest_name = 64 };

static conf_context_t* plugin;
static time_t started;

/* The daemon says that something has changed; what it is now, one has to ask. */
static int hostname_changed(int oper, int more, int priority, char* path) {
    char too_long[] = "A host name has 64 characters at most.";
    conf_val_t value = {NULL};
    int result = 0;
    (void)oper, (void)more, (void)priority;

    if (conf_plg_get_value(plugin, path, &value) < 0)
        return -1;
    const char* name = value.data == NULL ? NULL : conf_get_node_content(value.data->children);
    if (name != NULL && strlen(name) > longest_name) {
        conf_plg_set_error(plugin, EINVAL, too_long);
        result = -1;
    } else {
        printf("%s: %s\n", path, name == NULL ? "none" : name);
    }
    xmlFreeNode(value.data);
    return result;
}

static int uptime(char* path, char* filter, xmlNode** status) {
    char seconds[16];
    (void)path, (void)filter;

    (void)snprintf(seconds, sizeof seconds, "%.0f", difftime(time(NULL), started));
    *status = xmlNewNode(NULL, BAD_CAST "uptime"); /* the library's from here on */
    xmlNodeAddContent(*status, BAD_CAST seconds);
    return 0;
}

/* The children of the one node that is handed back are the answer; it must have some. */
static int repeat(xmlNode* input, xmlNode** output) {
    if (input == NULL)
        return 0;
    *output = xmlNewNode(NULL, BAD_CAST "output");
    xmlAddChildList(*output, xmlCopyNodeList(input));
    return 0;
}

int main(void) {
    char plugin_name[] = "system";
    char hostname_path[] = "/system/hostname";
    char uptime_path[] = "/system/uptime";
    char repeat_path[] = "/system/repeat";
    config_callback_t config[] = {{hostname_path, 0, hostname_changed}, {NULL, 0, NULL}};
    status_callback_t status[] = {{uptime_path, uptime}, {NULL, NULL}};
    rpc_callback_t operations[] = {{repeat_path, repeat}, {NULL, NULL}};
    conf_plugin_info_t info = {config, status, operations, NULL, NULL};

    (void)signal(SIGPIPE, SIG_IGN); /* a dying daemon must not take this process with it */
    (void)setvbuf(stdout, NULL, _IOLBF, 0);
    econf_plugin_config_debug(DBG_ERROR, 1);
    started = time(NULL);

    plugin = conf_plugin_init(plugin_name, &info);
    if (plugin == NULL || conf_start_session(plugin, ACTIVATE_WITH_CFGR) < 0) {
        (void)fprintf(stderr,
                      "The daemon did not take the plugin; /var/log/conf_plugin.log says why.\n");
        return 1;
    }
    conf_run(plugin, 1); /* until the daemon hangs up */
    conf_plugin_close(plugin);
    return 0;
}
