/*
 * A plugin that makes one mistake: mistakes WORD, whose name as a plugin is that word, too.
 */
#define _GNU_SOURCE /* POLLRDHUP */

#include <conf_api.h>
#include <conf_debug.h>

#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static int take(int session, int oper, int more, int priority, const char* path) {
    (void)session, (void)oper, (void)more, (void)priority, (void)path;
    return 0;
}

static int refuse_with_0(int session, int oper, int more, int priority, const char* path) {
    (void)session, (void)oper, (void)more, (void)priority, (void)path;
    econf_plugin_error(0, "It failed.");
    return -1;
}

static int leave_error(int session, const char* path, const char* filter, xmlNode** status) {
    (void)session, (void)path, (void)filter;
    *status = xmlNewNode(NULL, BAD_CAST "state");
    econf_plugin_error(5, "It is late.");
    return 0;
}

static int two_nodes(int session, const char* path, const char* filter, xmlNode** status) {
    (void)session, (void)path, (void)filter;
    *status = xmlNewNode(NULL, BAD_CAST "one");
    (void)xmlAddNextSibling(*status, xmlNewNode(NULL, BAD_CAST "two"));
    return 0;
}

static int text_alone(int session, const char* path, const char* filter, xmlNode** status) {
    (void)session, (void)path, (void)filter;
    *status = xmlNewText(BAD_CAST "up");
    return 0;
}

static int control_byte(int session, const char* path, const char* filter, xmlNode** status) {
    (void)session, (void)path, (void)filter;
    *status = xmlNewNode(NULL, BAD_CAST "state");
    xmlAddChild(*status, xmlNewText(BAD_CAST "a\001b"));
    return 0;
}

static int late(int session, const char* path, const char* filter, xmlNode** status) {
    (void)session, (void)path, (void)filter;
    *status = xmlNewNode(NULL, BAD_CAST "state");
    return poll(NULL, 0, 1100);
}

static int code_0(int session, xmlNode* input, xmlNode** output) {
    (void)session, (void)input, (void)output;
    econf_plugin_error(0, "It failed.");
    return -1;
}

static char operation[] = "do";

static struct mistake {
    const char* word;
    econf_config_cb_info_t configs[3];
    econf_status_cb_info_t statuses[2];
    econf_operate_cb_info_t operations[2];
} mistakes[] = {
    {.word = "ampersand", .configs = {{"/a", 1, take}, {"/b&c", 1, take}}},
    {.word = "entity", .configs = {{"/b&c;d", 1, take}}},
    {.word = "twice", .configs = {{"/a", 1, take}, {"/a", 2, take}}},
    {.word = "slash", .statuses = {{"a/b", late}}},
    {.word = "mistyped", .configs = {{"/system/hostnam", 1, take}}},
    {.word = "null", .statuses = {{"/null", NULL}}},
    {.word = "nodes", .statuses = {{"/nodes", two_nodes}}},
    {.word = "text", .statuses = {{"/text", text_alone}}},
    {.word = "byte", .statuses = {{"/byte", control_byte}}},
    {.word = "late", .statuses = {{"/late", late}}},
    {.word = "code", .operations = {{operation, code_0}}},
    {.word = "refusal", .configs = {{"/refusal", 1, refuse_with_0}}},
    {.word = "left", .statuses = {{"/left", leave_error}}},
};

static int is(const char* word, const char* other) { return (strcmp)(word, other) == 0; }

static int begin(const char* word) {
    struct mistake none = {0};
    struct mistake* its = &none;

    for (size_t i = 0; i < sizeof mistakes / sizeof *mistakes; ++i)
        if (is(mistakes[i].word, word))
            its = &mistakes[i];
    econf_plugin_subpub_info_t info = {its->configs, its->statuses, its->operations, NULL};
    return econf_plugin_init(word, &info);
}

/* Where it goes wrong by what the process does. */
static void go_wrong(const char* word, struct pollfd* daemon) {
    for (int i = 0; is(word, "loop") && i < 10; ++i) {
        econf_plugin_close();
        daemon->fd = begin(word);
        (void)econf_plugin_activate(ACTIVATE_WITH_NONE);
    }
    if (is(word, "child") && fork() != 0)
        _exit(0);
    if (is(word, "share") && fork() == 0)
        _exit(pause());
    if (is(word, "fork") && fork() == 0) {
        xmlNode* none = NULL;
        _exit(econf_plugin_pull(0, "/a", &none) == 0);
    }
    while (is(word, "spin") && poll(daemon, 1, -1) == 1)
        econf_plugin_run();
}

int main(int argc, char** argv) {
    const char* word = argc > 1 ? argv[1] : "";
    struct pollfd daemon = {.events = POLLIN | POLLRDHUP};

    if (is(word, "refusal") || is(word, "left") || is(word, "fork"))
        (void)econf_plugin_config_debug(DBG_DEBUG, 1);
    if (!is(word, "sigpipe"))
        (void)signal(SIGPIPE, SIG_IGN);
    daemon.fd = begin(word);
    if (daemon.fd < 0 || (!is(word, "inactive") && econf_plugin_activate(ACTIVATE_WITH_NONE) < 0))
        return 4;
    go_wrong(word, &daemon);
    do
        econf_plugin_run();
    while (poll(&daemon, 1, -1) == 1 && daemon.revents == POLLIN);
    econf_plugin_close();
    return 0;
}
