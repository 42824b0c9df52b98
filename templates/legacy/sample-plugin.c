/*
 * What sample-plugin does, by the older API: a callback for each path that it serves. main.c registers
 * them, and tests/sample-plugin_test.c calls them.
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
static char setting_changed_path[] = "/sample/setting";

/* The daemon says where something has changed; what stood and what stands there is read from it. */
static int setting_changed(int oper, int more, int priority, char* path) {
    xmlNode* before = conf_get_old_config(path);
    xmlNode* after = conf_get_config(path);
    int result = -1; /* refuses the change: the daemon takes it back */
    (void)more, (void)priority;

    if (strchr(text_of(after), ' ') != NULL) {
        conf_set_error(EINVAL, "A value has no blanks.");
    } else {
        printf("%s: %s -> %s%s\n", path, text_of(before), text_of(after),
               (oper & CONFIG_OP_ROLLBACK) != 0 ? " (taken back)" : "");
        changes++;
        result = 0;
    }
    xmlFreeNodeList(before);
    xmlFreeNodeList(after);
    return result;
}

/* [[end]] */
/* [[each status]] */
static char state_status_path[] = "/sample/state";

/* Answers with one new node, which is the library's from then on. */
static int state_status(char* path, char* filter, xmlNode** status) {
    char number[24];
    (void)path, (void)filter;

    *status = xmlNewNode(NULL, BAD_CAST "state");
    xmlNewTextChild(*status, NULL, BAD_CAST "changes",
                    BAD_CAST conf_itoa(changes, number, sizeof number));
    return 0;
}

/* [[end]] */
/* [[each operate]] */
static char reset_operation_path[] = "/sample/reset";

/*
 * Its input is the number to count from, as <count>0</count>; it answers how many there were. The answer
 * is what lies in the one node that is handed back.
 */
static int reset_operation(xmlNode* input, xmlNode** output) {
    const char* given = conf_get_node_content(input);
    char number[24];

    if (given == NULL || strlen(given) > 9 || given[strspn(given, "0123456789")] != '\0') {
        conf_set_error(EINVAL, "A count has one to nine digits.");
        return -1;
    }
    *output = xmlNewNode(NULL, BAD_CAST "output");
    xmlNewTextChild(*output, NULL, BAD_CAST "was",
                    BAD_CAST conf_itoa(changes, number, sizeof number));
    changes = strtol(given, NULL, 10);
    return 0;
}

/* [[end]] */
/* The daemon asks for a fresh start. */
static void kick_off(void) { changes = 0; }

/* The number is the priority: smaller ones are told first. */
static config_callback_t config[] = {
    /* [[each config]] */
    {setting_changed_path, 10, setting_changed},
    /* [[end]] */
    {NULL, 0, NULL},
};
static status_callback_t status[] = {
    /* [[each status]] */
    {state_status_path, state_status},
    /* [[end]] */
    {NULL, NULL},
};
static rpc_callback_t operations[] = {
    /* [[each operate]] */
    {reset_operation_path, reset_operation},
    /* [[end]] */
    {NULL, NULL},
};

conf_plugin_info_t callbacks = {config, status, operations, kick_off, NULL};
