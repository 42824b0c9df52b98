/*
 * The daemon's role, as small as it may be: plugins register, read the configuration and are told of
 * changes; one plugin lives in this process and is reached by hooks; notifications are printed.
 *
 * A line on standard input is a change, such as "/interfaces/interface/mtu 9000", and the end of the
 * input ends the daemon. Paths have no keys here.
 */
#define _GNU_SOURCE /* accept4 */

#include <conf_api.h>
#include <conf_misc.h>
#include <conf_plugin.h>

#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

enum { most_plugins = 16, most_subscriptions = 8, largest_mtu = 9216, invalid = 22 };

/* One of a plugin's callbacks: what the daemon names it by is the index. */
struct subscription {
    char path[128];
    int priority;
    int callback;
    int due; /* CONFIG_OP_* of a change that waits to be published, 0 for none */
};

struct plugin {
    conf_buffer_t* in;
    conf_buffer_t* out;
    int sock; /* 0 while the place is free */
    int is_active;
    u32_t awaited; /* id of the request that it has yet to answer, 0 for none */
    int count;
    struct subscription subscriptions[most_subscriptions];
    char name[64];
};

static struct plugin plugins[most_plugins];
static xmlNode* current; /* the configuration, and what it was before the last change */
static xmlNode* previous;

/* The element that the path leads to; made where it is missing, if so wished. */
static xmlNode* find(xmlNode* at, const char* path, int make) {
    while (*path == '/' && path[1] != '\0') {
        size_t length = strcspn(++path, "/");
        char* name = strndup(path, length);
        xmlNode* child = at->children;
        while (child != NULL && strcmp((const char*)child->name, name) != 0)
            child = child->next;
        if (child == NULL && make)
            child = xmlNewChild(at, NULL, BAD_CAST name, NULL);
        free(name);
        if (child == NULL)
            return NULL;
        at = child;
        path += length;
    }
    return at;
}

static void replace(xmlNode** tree, xmlNode* by) {
    xmlFreeNode(*tree);
    *tree = xmlCopyNode(by, 1);
}

/* The text of that child, empty when there is none. */
static const char* text_of(xmlNode* parent, const char* path) {
    const char* text = conf_get_node_content(find(parent, path, 0));
    return text == NULL ? "" : text;
}

/* The plugin in this process. It makes the same calls as any other; they come to the hooks. */
static int mtu_changed(const char* path) {
    xmlNode* mtu = NULL;
    int result = -1;

    if (econf_plugin_pull(0, path, &mtu) == 0 && mtu != NULL) {
        const char* text = conf_get_node_content(mtu);
        if (text == NULL || strtol(text, NULL, 10) > largest_mtu)
            econf_plugin_error(invalid, "The MTU must be 9216 at most.");
        else
            result = 0;
    }
    xmlFreeNodeList(mtu);
    return result;
}

static int hook_pull(bool_t old_flag, const char* path, xmlNode** result) {
    xmlNode* found = find(old_flag ? previous : current, path, 0);
    *result = found == NULL ? NULL : xmlCopyNode(found, 1);
    return 0;
}

static void hook_error(int code, const char* text) { printf("local: error %d %s\n", code, text); }

/* A frame is a header and the text of one element, which is freed here. */
static void send_message(struct plugin* to, xmlNode* message) {
    xmlBuffer* text = xmlBufferCreate();

    if (message != NULL && text != NULL && xmlNodeDump(text, NULL, message, 0, 0) > 0) {
        msg_head_t head = {CONF_MSG_MAGIC, (u32_t)xmlBufferLength(text), 0, 0};
        xmlChar* body = xmlBufferDetach(text);
        conf_buffer_append(&to->out, &head, sizeof head);
        conf_buffer_append(&to->out, body, (int)head.length);
        xmlFree(body);
    }
    xmlBufferFree(text);
    xmlFreeNode(message);
}

static void answer(struct plugin* to, u32_t id, xmlNode* outcome) {
    send_message(to, plugin_build_reply_message(outcome, id));
}

static void add_number(xmlNode* parent, const char* name, long number) {
    char digits[32];
    xmlNewTextChild(parent, NULL, BAD_CAST name, BAD_CAST conf_itoa(number, digits, sizeof digits));
}

static void publish(struct plugin* to, const struct subscription* about) {
    static u32_t id =
        65535; /* plugins count up to here by themselves, so from here on ids differ */
    xmlNode* params = xmlNewNode(NULL, BAD_CAST "params");
    xmlNode* info = xmlNewNode(NULL, BAD_CAST "info");

    xmlNewTextChild(params, NULL, BAD_CAST "type", BAD_CAST "config");
    add_number(params, "session-id", 1);
    xmlAddChild(params, info);
    add_number(info, "oper-type", about->due);
    add_number(info, "more-flag", 0);
    add_number(info, "priority", about->priority);
    xmlNewTextChild(info, NULL, BAD_CAST "path", BAD_CAST about->path);
    add_number(params, "callback", about->callback);
    to->awaited = ++id;
    send_message(to, plugin_build_rpc_message("publish", params, id));
}

/* What is to be published first; null when there is nothing. */
static struct subscription* next_due(struct plugin* of) {
    struct subscription* next = NULL;
    for (struct subscription* each = of->subscriptions; each < of->subscriptions + of->count;
         each++)
        if (each->due != 0 && (next == NULL || each->priority < next->priority))
            next = each;
    return next;
}

/* One at a time: what arrives while a callback asks for the configuration would be dropped. */
static void publish_next(struct plugin* to) {
    struct subscription* next = next_due(to);
    if (!to->is_active || to->awaited != 0 || next == NULL)
        return;
    publish(to, next);
    next->due = 0;
}

static void take_registration(struct plugin* from, u32_t id, xmlNode* params) {
    xmlNode* section = find(params, "/config-subscribe", 0);
    xmlNode* each = section == NULL ? NULL : section->children;

    (void)snprintf(from->name, sizeof from->name, "%s", text_of(params, "/plugin-name"));
    for (; each != NULL && from->count < most_subscriptions; each = each->next) {
        struct subscription* slot = &from->subscriptions[from->count++];
        (void)snprintf(slot->path, sizeof slot->path, "%s", text_of(each, "/path"));
        slot->priority = (int)strtol(text_of(each, "/priority"), NULL, 10);
        slot->callback = (int)strtol(text_of(each, "/callback"), NULL, 10);
    }
    answer(from, id, xmlNewNode(NULL, BAD_CAST "result"));
    printf("%s: registered\n", from->name);
}

/* Those that asked for it are told at once of all that there is. */
static void take_activation(struct plugin* from, u32_t id, xmlNode* params) {
    struct subscription* each = from->subscriptions;

    from->is_active = 1;
    answer(from, id, xmlNewNode(NULL, BAD_CAST "result"));
    printf("%s: active\n", from->name);
    for (; each < from->subscriptions + from->count; each++)
        if (find(params, "/with-cfgr", 0) != NULL && find(current, each->path, 0) != NULL)
            each->due = CONFIG_OP_CFGR | CONFIG_OP_ADD;
}

static void take_pull(struct plugin* from, u32_t id, xmlNode* params) {
    xmlNode* result = xmlNewNode(NULL, BAD_CAST "result");
    xmlNode* data = xmlNewChild(result, NULL, BAD_CAST "data", NULL);
    xmlNode* where = find(params, "/old", 0) != NULL ? previous : current;
    xmlNode* found = find(where, text_of(params, "/path"), 0);

    xmlAddChild(data, found == NULL ? NULL : xmlCopyNode(found, 1));
    answer(from, id, result);
}

static void refuse(struct plugin* from, u32_t id, xmlNode* params) {
    xmlNode* error = xmlNewNode(NULL, BAD_CAST "error");
    (void)params;

    add_number(error, "code", -1);
    xmlNewTextChild(error, NULL, BAD_CAST "message", BAD_CAST "This daemon does not do that.");
    answer(from, id, error);
}

static const struct {
    const char* method;
    void (*take)(struct plugin* from, u32_t id, xmlNode* params);
} requests[] = {{"register", take_registration},
                {"activate", take_activation},
                {"pull", take_pull},
                {NULL, refuse}};

static void take_answer(struct plugin* from, xmlNode* reply) {
    xmlNode* result;
    xmlNode* error;

    if (plugin_get_msgid(reply) != from->awaited || plugin_parse_reply(reply, &result, &error) < 0)
        return;
    from->awaited = 0;
    if (error == NULL) {
        printf("%s: accepted\n", from->name);
        return;
    }
    const char* text = plugin_get_reply_errmsg(error);
    printf("%s: error %d %s\n", from->name, plugin_get_reply_errcode(error),
           text == NULL ? "" : text);
    replace(&current, previous); /* those who have accepted it would have to be told, too */
}

static void take_message(struct plugin* from, xmlNode* message) {
    const char* method;
    xmlNode* params;
    size_t i = 0;

    if (strcmp((const char*)message->name, "reply") == 0) {
        take_answer(from, message);
    } else if (plugin_parse_rpc(message, &method, &params) == 0) {
        while (i < sizeof requests / sizeof *requests && strcmp(requests[i].method, method) != 0)
            ++i;
        (i < sizeof requests / sizeof *requests ? requests[i].take
                                                : refuse)(from, plugin_get_msgid(message), params);
    }
}

/* Whether what has come begins like a frame, as far as it has come. */
static int begins_a_frame(conf_buffer_t* in) {
    msg_head_t head;

    if (conf_buffer_length(in) < (int)sizeof head)
        return 1;
    memcpy(&head, conf_buffer_data(in), sizeof head);
    return head.magic == CONF_MSG_MAGIC && head.length <= CONF_MSG_MAX_LENGTH;
}

/* @return whether the plugin is still there, and makes sense */
static int read_messages(struct plugin* from) {
    char piece[4096];
    ssize_t count = read(from->sock, piece, sizeof piece);
    int before = -1;

    if (count <= 0 || conf_buffer_append(&from->in, piece, (int)count) < 0)
        return 0;
    while (begins_a_frame(from->in) && conf_buffer_length(from->in) != before) {
        before = conf_buffer_length(from->in);
        xmlNode* message = plugin_parse_message(&from->in); /* leaves half a frame alone */
        if (message != NULL)
            take_message(from, message);
        xmlFreeNode(message);
    }
    return begins_a_frame(from->in);
}

static int has_output(const struct plugin* to) {
    return to->sock != 0 && conf_buffer_length(to->out) > 0;
}

static int write_messages(struct plugin* to) {
    ssize_t count = write(to->sock, conf_buffer_data(to->out), (size_t)conf_buffer_length(to->out));
    if (count > 0)
        conf_buffer_remove(to->out, 0, (int)count);
    return count > 0;
}

static int exchange(struct plugin* with, int events) {
    return ((events & ~POLLOUT) == 0 || read_messages(with)) &&
           ((events & POLLOUT) == 0 || write_messages(with));
}

static void let_in(int service) {
    struct plugin* place = plugins;

    while (place < plugins + most_plugins && place->sock != 0)
        place++;
    int sock = accept4(service, NULL, NULL, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (sock < 0 || place == plugins + most_plugins)
        (void)close(sock);
    else
        *place = (struct plugin){
            .sock = sock, .in = conf_buffer_create(0), .out = conf_buffer_create(0)};
}

static void let_go(struct plugin* which) {
    printf("%s: gone\n", which->name);
    (void)close(which->sock);
    conf_buffer_destroy(which->in);
    conf_buffer_destroy(which->out);
    memset(which, 0, sizeof *which);
}

static int somebody_is_busy(void) {
    int busy = 0;
    for (struct plugin* each = plugins; each < plugins + most_plugins; each++)
        busy |= each->is_active && (each->awaited != 0 || next_due(each) != NULL);
    return busy;
}

/* Whether one path is the other, or leads to it. */
static int concerns(const char* subscribed, const char* changed) {
    size_t length = strlen(subscribed);
    return strncmp(subscribed, changed, length) == 0 &&
           (changed[length] == '/' || changed[length] == '\0');
}

/* The plugin in this process is asked first, then all others that have subscribed. */
static void change(const char* path, const char* value) {
    replace(&previous, current);
    xmlNodeSetContent(find(current, path, 1), BAD_CAST value);
    if (mtu_changed(path) != 0) {
        replace(&current, previous);
        return;
    }
    for (struct plugin* each = plugins; each < plugins + most_plugins; each++)
        for (int i = 0; i < each->count; ++i)
            if (concerns(each->subscriptions[i].path, path))
                each->subscriptions[i].due |= CONFIG_OP_MOD;
}

/* @return 0 at the end of the input */
static int read_change(void) {
    char path[256];
    char value[256];
    if (scanf("%255s %255s", path, value) != 2)
        return 0;
    change(path, value);
    return 1;
}

static void print_notification(int notifier) {
    char text[4096];
    ssize_t length = recv(notifier, text, sizeof text, 0);
    printf("notification: %.*s\n", (int)(length < 0 ? 0 : length), text);
}

/* @return 0 at the end of the input */
static int serve(int service, int notifier) {
    struct pollfd ready[most_plugins + 3] = {
        {service, POLLIN, 0}, {notifier, POLLIN, 0}, {somebody_is_busy() ? -1 : 0, POLLIN, 0}};
    struct pollfd* of_plugins = ready + 3;

    for (int i = 0; i < most_plugins; ++i) {
        publish_next(&plugins[i]);
        of_plugins[i].fd = plugins[i].sock == 0 ? -1 : plugins[i].sock;
        of_plugins[i].events = has_output(&plugins[i]) ? POLLIN | POLLOUT : POLLIN;
    }
    if (poll(ready, most_plugins + 3, -1) < 0)
        return 1;
    if (ready[0].revents != 0)
        let_in(service);
    if (ready[1].revents != 0)
        print_notification(notifier);
    for (int i = 0; i < most_plugins; ++i)
        if (of_plugins[i].revents != 0 && !exchange(&plugins[i], of_plugins[i].revents))
            let_go(&plugins[i]);
    return ready[2].revents == 0 || read_change();
}

int main(void) {
    pelmd_plugin_callback_t hooks = {.conf_plugin_pull = hook_pull,
                                     .conf_plugin_error = hook_error};

    (void)signal(SIGPIPE, SIG_IGN);
    (void)setvbuf(stdin, NULL, _IONBF, 0); /* nothing may wait where poll() does not see it */
    (void)setvbuf(stdout, NULL, _IOLBF, 0);
    (void)conf_load_config(NULL); /* without a profile the sockets are in /var/tmp */
    current = xmlNewNode(NULL, BAD_CAST "config");
    previous = xmlNewNode(NULL, BAD_CAST "config");
    int service = conf_plugin_service_enable();
    int notifier = conf_plugin_notifier_enable();
    if (service < 0 || notifier < 0 || conf_plugin_init_api(&hooks) < 0)
        return 1;
    printf("ready\n");
    while (serve(service, notifier))
        continue;
    conf_plugin_notifier_disable(notifier);
    conf_plugin_service_disable(service);
    return 0;
}
