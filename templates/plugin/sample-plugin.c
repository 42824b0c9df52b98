/*
 * What sample-plugin does: a callback for each path that it serves. main.c registers them, and
 * tests/sample-plugin_test.c calls them.
 */
#include <conf_api.h>
#include <conf_misc.h>

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static long changes; /* taken so far; your plugin's state goes here */

/* [[any config]] */
/* The text of an element, less that of elements in it. */
static const char* text_of(const xmlNode* element) {
    const xmlNode* child = element == NULL ? NULL : element->children;
    while (child != NULL && child->type != XML_TEXT_NODE)
        child = child->next;
    return child == NULL ? "none" : (const char*)child->content;
}

/* [[end]] */
/* [[each config]] */
/* The daemon says where something has changed; what stood and what stands there is read from it. */
static int setting_changed(int session, int oper, int more, int priority, const char* path) {
    xmlNode* before = NULL;
    xmlNode* after = NULL;
    int result = -1; /* refuses the change: the daemon takes it back */
    (void)session, (void)more, (void)priority;

    if (econf_plugin_pull(1, path, &before) == 0 && econf_plugin_pull(0, path, &after) == 0) {
        if (strchr(text_of(after), ' ') != NULL) {
            econf_plugin_error(EINVAL, "A value has no blanks.");
        } else {
            printf("%s: %s -> %s%s\n", path, text_of(before), text_of(after),
                   (oper & CONFIG_OP_ROLLBACK) != 0 ? " (taken back)" : "");
            changes++;
            result = 0;
        }
    }
    xmlFreeNodeList(before);
    xmlFreeNodeList(after);
    return result;
}

/* [[end]] */
/* [[each status]] */
/* Answers with one new node, which is the library's from then on. */
static int state_status(int session, const char* path, const char* filter, xmlNode** status) {
    char number[24];
    (void)session, (void)path, (void)filter;

    *status = xmlNewNode(NULL, BAD_CAST "state");
    xmlNewTextChild(*status, NULL, BAD_CAST "changes",
                    BAD_CAST conf_itoa(changes, number, sizeof number));
    return 0;
}

/* [[end]] */
/* [[each operate]] */
static char reset_path[] = "/sample/reset";

/* Its input is the number to count from, as <count>0</count>; it answers how many there were. */
static int reset_operation(int session, xmlNode* input, xmlNode** output) {
    const char* given = conf_get_node_content(input);
    char number[24];
    (void)session;

    if (given == NULL || strlen(given) > 9 || given[strspn(given, "0123456789")] != '\0') {
        econf_plugin_error(EINVAL, "A count has one to nine digits.");
        return -1;
    }
    *output = xmlNewNode(NULL, BAD_CAST "was");
    xmlNodeAddContent(*output, BAD_CAST conf_itoa(changes, number, sizeof number));
    changes = strtol(given, NULL, 10);
    return 0;
}

/* [[end]] */
/* The daemon asks for a fresh start. */
static void kick_off(void) { changes = 0; }

/* The number is the priority: smaller ones are told first. */
static econf_config_cb_info_t config[] = {
    /* [[each config]] */
    {"/sample/setting", 10, setting_changed},
    /* [[end]] */
    {NULL, 0, NULL},
};
static econf_status_cb_info_t status[] = {
    /* [[each status]] */
    {"/sample/state", state_status},
    /* [[end]] */
    {NULL, NULL},
};
static econf_operate_cb_info_t operations[] = {
    /* [[each operate]] */
    {reset_path, reset_operation},
    /* [[end]] */
    {NULL, NULL},
};

econf_plugin_subpub_info_t callbacks = {config, status, operations, kick_off};
