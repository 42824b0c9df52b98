/*
 * A plugin that scripts steer: test_plugin NAME PRIORITY [MODE [late]]
 *
 * It prints what it is told about, refuses a configuration that holds its NAME, and carries out
 * what the input of its operation /test/do asks for, one element each. A late one waits before it
 * looks whether there are requests already.
 */
#define _GNU_SOURCE

#include <conf_api.h>
#include <conf_debug.h>
#include <conf_misc.h>
#include <conf_plugin.h>

#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static const char* name;

/* Prints the configuration, or the old one, and tells whether it holds what is to be refused. */
static int print_tree(const char* label, int is_old, const char* path) {
    xmlNode* tree = NULL;
    xmlBuffer* text = xmlBufferCreate();
    int result = econf_plugin_pull(is_old, path, &tree);
    xmlNodeDump(text, NULL, tree, 0, 0);
    printf(" %s %s", label, (const char*)xmlBufferContent(text));
    result |= (strstr)((const char*)xmlBufferContent(text), name) != NULL;
    xmlBufferFree(text);
    xmlFreeNodeList(tree);
    return result;
}

static int config(int session_id, int oper, int more, int priority, const char* path) {
    printf("session %d oper %d more %d priority %d %s", session_id, oper, more, priority, path);
    int result = print_tree("new", 0, path);
    (void)print_tree("old", 1, path);
    printf("\n");
    if (result > 0)
        econf_plugin_error(5, "refused <as> told");
    return result;
}

static int record_client(int pid) {
    conf_cli_info_t client = {.sshd_pid = pid, .cli_port = 2222, .addr_buf = {htonl(0xC0000207)}};
    return conf_clishm_create(4) < 0 || conf_save_client_info(&client) < 0;
}

static int do_one(xmlNode* order, xmlNode** found) {
    const char* what = (const char*)order->name;
    const char* text = conf_get_node_content(order);
    const char* path = conf_get_node_content((xmlNode*)order->properties);
    if (strcmp(what, "pull") == 0)
        return econf_plugin_pull(0, text, found);
    if (strcmp(what, "locate") == 0)
        return econf_plugin_locate(0, text, found);
    if (strcmp(what, "push") == 0)
        return econf_plugin_push(path, order->children);
    if (strcmp(what, "deploy") == 0)
        return econf_plugin_config_deployment(
            path, atoi(conf_get_node_content((xmlNode*)order->properties->next)), order->children);
    if (strcmp(what, "save") == 0)
        return econf_plugin_save_deployment();
    if (strcmp(what, "copy") == 0)
        return econf_plugin_copy_running_to_deployment(atoi(text));
    if (strcmp(what, "notify") == 0)
        return econf_notify(name, order->children);
    if (strcmp(what, "client") == 0)
        return record_client(atoi(text));
    _exit(atoi(text)); /* which is all that is left */
}

static int operate(int session_id, xmlNode* input, xmlNode** output) {
    int result = 0;
    (void)session_id;
    *output = xmlNewNode(NULL, BAD_CAST "all");
    for (xmlNode* order = input; order != NULL && result == 0; order = order->next) {
        xmlNode* found = NULL;
        result = do_one(order, &found);
        xmlAddChildList(*output, found);
    }
    return result;
}

int main(int argc, char** argv) {
    int priority = atoi(argv[2]);
    econf_config_cb_info_t configs[] = {
        {"/net:a/b", priority, config},
        {"/a/c", priority + 1, config},
        {"/k[n=1]", priority, config},
        {NULL, 0, NULL},
    };
    char path[] = "/test/do";
    econf_operate_cb_info_t operations[] = {{path, operate}, {NULL, NULL}};
    econf_plugin_subpub_info_t info = {configs, NULL, operations, NULL};
    struct pollfd ready = {.events = POLLIN | POLLRDHUP};

    name = argv[1];
    signal(SIGPIPE, SIG_IGN);
    setvbuf(stdout, NULL, _IOLBF, 0);
    econf_plugin_config_debug(DBG_ALL, 1);
    ready.fd = econf_plugin_init(name, &info);
    if (ready.fd < 0 || econf_plugin_activate(argc > 3 ? atoi(argv[3]) : ACTIVATE_WITH_NONE) < 0) {
        econf_plugin_close();
        return 4;
    }
    puts("active");
    if (argc > 4)
        (void)poll(&ready, 1, -1);
    do
        econf_plugin_run();
    while (poll(&ready, 1, -1) > 0 && (ready.revents & ~POLLIN) == 0);
    econf_plugin_close();
    return 0;
}
