/*
 * Callbacks that do what they are told, for the kit and as a process of their own, which with an
 * argument is a plugin of the older API.
 */
#include <conf_api.h>
#include <conf_misc.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static xmlNode* seen; /* what was told of */

static xmlNode* element(xmlNode* parent, const char* name, const char* text) {
    if (parent == NULL)
        return xmlNewNode(NULL, BAD_CAST name);
    return xmlNewTextChild(parent, NULL, BAD_CAST name, BAD_CAST text);
}

static void note(const char* line) {
    if (seen == NULL)
        seen = element(NULL, "seen", NULL);
    element(seen, "at", line);
}

static int obey(const char* order) {
    if (strcmp(order, "refuse") == 0)
        return -1;
    if (strcmp(order, "zero") == 0)
        return econf_plugin_error(0, "no failure"), 1;
    if (strcmp(order, "untold") == 0)
        return econf_plugin_error(6, NULL), 9;
    if (strncmp(order, "error", 5) == 0)
        return econf_plugin_error(5, order), 1;
    if (strcmp(order, "left") == 0)
        econf_plugin_error(7, "left over");
    return 0;
}

static int config(int session, int oper, int more, int priority, const char* path) {
    char line[128];
    xmlNode* now = NULL;
    xmlNode* old = NULL;
    snprintf(line, sizeof line, "%d %d %d %d %s", session, oper, more, priority, path);
    note(line);
    int result = econf_plugin_pull(0, path, &now) | econf_plugin_pull(1, path, &old);
    xmlNode* order = now == NULL ? NULL : xmlLastElementChild(now);
    if (order != NULL)
        result |= obey(conf_get_node_content(order));
    xmlAddChildList(element(seen, "now", NULL), now);
    xmlAddChildList(element(seen, "old", NULL), old);
    return result;
}

static int status(int session, const char* path, const char* filter, xmlNode** status) {
    const char* order = filter == NULL ? "seen" : filter;
    if (session != 1 || strcmp(order, "none") == 0)
        return session - 1;
    *status = strcmp(order, "seen") == 0 ? seen : element(NULL, "state", NULL);
    if (*status == seen)
        seen = NULL;
    else
        element(*status, "path", path);
    if (strcmp(order, "two") == 0)
        xmlAddNextSibling(*status, element(NULL, "more", NULL));
    return obey(order);
}

static int carry_out(xmlNode* order, xmlNode** found) {
    const char* what = (const char*)order->name;
    const char* text = conf_get_node_content(order);
    if (strcmp(what, "pull") == 0)
        return econf_plugin_pull(0, text, found);
    if (strcmp(what, "locate") == 0)
        return econf_plugin_locate(0, text, found);
    if (strcmp(what, "push") == 0)
        return econf_plugin_push("/t/pushed", order->children);
    if (strcmp(what, "deploy") == 0)
        return econf_plugin_config_deployment("/t/d", 0, order->children);
    if (strcmp(what, "save") == 0)
        return econf_plugin_save_deployment();
    if (strcmp(what, "copy") == 0)
        return econf_plugin_copy_running_to_deployment(atoi(text));
    if (strcmp(what, "reply") == 0)
        return conf_send_reply(1, order, order);
    if (strcmp(what, "close") == 0)
        econf_plugin_close();
    if (strcmp(what, "deactivate") == 0)
        econf_plugin_deactivate();
    for (int count = strcmp(what, "notify") == 0 ? atoi(text) : 0; count > 0; --count)
        econf_notify("order", order);
    *found = xmlCopyNode(order, 1);
    return obey(what);
}

static int operate(int session, xmlNode* input, xmlNode** output) {
    int result = session - 1;
    xmlNode* all = element(NULL, "all", NULL);
    for (xmlNode* order = input; order != NULL && result == 0; order = order->next) {
        xmlNode* found = NULL;
        result = carry_out(order, &found);
        xmlAddChildList(all, found);
    }
    *output = xmlCopyNodeList(all->children);
    xmlFreeNode(all);
    return result;
}

static void kick_off(void) {
    note("kick-off");
    econf_plugin_error(8, "that nobody hears of");
}

static int older_config(int oper, int more, int priority, char* path) {
    return config(0, oper, more, priority, path);
}

static int older_status(char* path, char* filter, xmlNode** out) {
    return status(1, path, filter, out);
}

static int older_operate(xmlNode* input, xmlNode** output) {
    *output = element(NULL, "output", NULL);
    xmlAddChildList(*output, xmlCopyNodeList(input));
    return 0;
}

static char a[] = "/t/a", b[] = "/n:t/b", state[] = "/t/state", order[] = "/t/do";
static char none[] = "/t/none", entity[] = "/t/e[k=\"&amp;\"]";

static econf_config_cb_info_t configs[] = {
    {a, 20, config}, {b, 10, config}, {entity, 5, config}, {none, 1, NULL}, {NULL, 0, NULL}};
static econf_status_cb_info_t statuses[] = {{state, status}, {none, NULL}, {NULL, NULL}};
static econf_operate_cb_info_t operations[] = {{order, operate}, {none, NULL}, {NULL, NULL}};
econf_plugin_subpub_info_t callbacks = {configs, statuses, operations, kick_off};

static config_callback_t older_configs[] = {{a, 20, older_config}, {NULL, 0, NULL}};
static status_callback_t older_statuses[] = {{state, older_status}, {NULL, NULL}};
static rpc_callback_t older_operations[] = {{order, older_operate}, {NULL, NULL}};
conf_plugin_info_t older_callbacks = {older_configs, older_statuses, older_operations, kick_off,
                                      NULL};

int main(int argc, char** argv) {
    char name[] = "callbacks";
    (void)argv;
    if (argc > 1 ? conf_plugin_init(name, &older_callbacks) == NULL
                 : econf_plugin_init(name, &callbacks) < 0)
        return 1;
    return econf_plugin_activate(ACTIVATE_WITH_NONE) < 0 || conf_run(NULL, 1) < 0;
}
