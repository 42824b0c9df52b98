/*
 * Tells the daemon of an event. Any process may; it need not be a plugin.
 */
#include <conf_api.h>
#include <conf_debug.h>
#include <conf_plugin.h>

#include <stdio.h>
#include <string.h>

/* Waits while the daemon has no room for more. */
static int notify(const char* name, const char* text) {
    xmlNode* event = xmlNewNode(NULL, BAD_CAST name);
    int result = -1;

    if (event != NULL && xmlNewTextChild(event, NULL, BAD_CAST "text", BAD_CAST text) != NULL)
        result = econf_notify(name, event);
    xmlFreeNode(event);
    return result;
}

int main(int argc, char** argv) {
    const int at_once = argc > 1 && strcmp(argv[1], "-n") == 0;

    if (argc != 3 + at_once) {
        (void)fprintf(stderr,
                      "usage: %s NAME TEXT      send <NAME><text>TEXT</text></NAME>\n"
                      "       %s -n NAME DATA   send DATA as it is, or fail at once\n",
                      argv[0], argv[0]);
        return 2;
    }
    econf_plugin_config_debug(DBG_ERROR, 1);
    (void)conf_load_config(NULL); /* without a profile the sockets are at their usual place */

    if ((at_once ? conf_notify_nonblock(argv[2], argv[3]) : notify(argv[1], argv[2])) < 0) {
        (void)fprintf(stderr, "The daemon was not told; /var/log/conf_plugin.log says why.\n");
        return 1;
    }
    return 0;
}
