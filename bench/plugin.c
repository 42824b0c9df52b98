// The plugin's process with the library. Mode "plugin" registers two callbacks, "plugin:N" N more.
#define _GNU_SOURCE
#include "drive.h"

#include "conf_api.h"
#include "conf_plugin.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>

static const struct load* work;
static long served;

static int on_change(int session_id, int oper, int more, int priority, const char* path) {
    (void)session_id, (void)oper, (void)more, (void)priority, (void)path;
    ++served;
    if (!work->pull)
        return 0;
    xmlNode* data = NULL;
    must(econf_plugin_pull(0, "/interfaces", &data) == 0 && data != NULL, "pull");
    xmlFreeNodeList(data);
    return 0;
}

static int on_operate(int session_id, xmlNode* input, xmlNode** output) {
    (void)session_id;
    ++served;
    if (work->hands_back)
        *output = xmlCopyNodeList(input);
    return 0;
}

void serve(const struct load* load, const char* directory) {
    work = load;
    const char* const more = strchr(load->mode, ':');
    const size_t others = more != NULL ? strtoul(more + 1, NULL, 10) : 0;
    econf_config_cb_info_t changes[] = {{"/interfaces", 100, on_change}, {NULL, 0, NULL}};
    char operation[] = "/restart";
    econf_operate_cb_info_t* operations = calloc(others + 2, sizeof *operations);
    must(operations != NULL, "calloc");
    for (size_t index = 0; index < others + 1; ++index)
        operations[index] = (econf_operate_cb_info_t){operation, on_operate};
    econf_plugin_subpub_info_t callbacks = {changes, NULL, operations, NULL};
    (void)snprintf(g_conf_plugin_socket, sizeof g_conf_plugin_socket, "%s/socket", directory);
    const int sock = econf_plugin_init("bench", &callbacks);
    must(sock >= 0 && econf_plugin_activate(ACTIVATE_WITH_NONE) == 0, "registering");
    const int loop = epoll_create1(EPOLL_CLOEXEC);
    struct epoll_event event = {.events = EPOLLIN | EPOLLET};
    must(epoll_ctl(loop, EPOLL_CTL_ADD, sock, &event) == 0, "epoll_ctl");
    // The first request may have come together with the answer to the activation.
    for (econf_plugin_run(); served < load->requests; econf_plugin_run())
        must(epoll_wait(loop, &event, 1, -1) == 1, "epoll_wait");
    econf_plugin_close();
    free(operations);
}
