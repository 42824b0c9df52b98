/*
 * A plugin that serves network interfaces.
 *
 * It takes changes of /interfaces/interface and of the addresses below it, tells how the interfaces
 * are, and serves one operation. It outlives the daemon: when that goes away, it registers again.
 */
#define _GNU_SOURCE /* ppoll, POLLRDHUP */

#include <conf_api.h>
#include <conf_debug.h>
#include <conf_misc.h>

#include <arpa/inet.h>
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { smallest_mtu = 68, first_delay_ms = 100, longest_delay_ms = 10000 };

static int changes; /* taken since the last reset */
static volatile sig_atomic_t stopping;

static const char* child_text(const xmlNode* parent, const char* name) {
    for (xmlNode* child = parent->children; child != NULL; child = child->next)
        if (strcmp((const char*)child->name, name) == 0)
            return conf_get_node_content(child);
    return NULL;
}

static const char* mtu_of(const xmlNode* interface) {
    const char* mtu = interface == NULL ? NULL : child_text(interface, "mtu");
    return mtu == NULL ? "none" : mtu;
}

/* The daemon says what happened to a path, but not the data: that is read from it, old and new. */
static int interface_changed(int session_id, int oper, int more, int priority, const char* path) {
    xmlNode* before = NULL;
    xmlNode* after = NULL;
    int result = -1;
    (void)session_id, (void)more, (void)priority;

    if (econf_plugin_pull(1, path, &before) == 0 && econf_plugin_pull(0, path, &after) == 0) {
        const char* mtu = mtu_of(after);
        if (strcmp(mtu, "none") != 0 && strtol(mtu, NULL, 10) < smallest_mtu) {
            econf_plugin_error(EINVAL, "The MTU must be 68 at least.");
        } else {
            printf("%s: mtu %s -> %s%s\n", path, mtu_of(before), mtu,
                   (oper & CONFIG_OP_ROLLBACK) != 0 ? " (taken back)" : "");
            changes++;
            result = 0;
        }
    }
    xmlFreeNodeList(before);
    xmlFreeNodeList(after);
    return result;
}

/* Comes after interface_changed(), for its priority is the greater number. */
static int address_changed(int session_id, int oper, int more, int priority, const char* path) {
    xmlNode* address = NULL;
    struct in_addr parsed;
    int result = 0;
    (void)session_id, (void)more, (void)priority;

    if ((oper & CONFIG_OP_RM) != 0)
        return 0;
    if (econf_plugin_pull(0, path, &address) < 0 || address == NULL)
        return -1; /* without a text of its own: "Service process failed." */
    const char* text = conf_get_node_content(address);
    if (text == NULL || inet_pton(AF_INET, text, &parsed) != 1) {
        econf_plugin_error(EINVAL, "That is no address.");
        result = -1;
    }
    xmlFreeNodeList(address);
    return result;
}

static int interface_state(int session_id, const char* path, const char* filter, xmlNode** status) {
    char number[16];
    (void)session_id, (void)path, (void)filter;

    *status = xmlNewNode(NULL, BAD_CAST "state"); /* the library's from here on */
    xmlNewTextChild(*status, NULL, BAD_CAST "changes",
                    BAD_CAST conf_itoa(changes, number, sizeof number));
    return 0;
}

static int reset_changes(int session_id, xmlNode* input, xmlNode** output) {
    char number[16];
    (void)session_id, (void)input;

    *output = xmlNewNode(NULL, BAD_CAST "was");
    xmlNodeAddContent(*output, BAD_CAST conf_itoa(changes, number, sizeof number));
    changes = 0;
    return 0;
}

static void kick_off(void) { printf("kick-off: everything is set up anew\n"); }

static econf_config_cb_info_t config[] = {{"/interfaces/interface", 10, interface_changed},
                                          {"/interfaces/interface/address", 20, address_changed},
                                          {NULL, 0, NULL}};
static econf_status_cb_info_t status[] = {{"/interfaces/state", interface_state}, {NULL, NULL}};
static char reset_path[] = "/interfaces/reset";
static econf_operate_cb_info_t operations[] = {{reset_path, reset_changes}, {NULL, NULL}};

/* What tests of these callbacks begin with, too: see plugin_test.c. */
econf_plugin_subpub_info_t interfaces = {config, status, operations, kick_off};

static int register_plugin(void) {
    int sock = econf_plugin_init("interfaces", &interfaces);
    if (sock >= 0 && econf_plugin_activate(ACTIVATE_WITH_CFGR) < 0) {
        econf_plugin_close();
        sock = -1;
    }
    return sock;
}

/* Returns when the daemon has gone or this process is to end. */
static void serve(int sock, const sigset_t* while_waiting) {
    struct pollfd ready = {.fd = sock, .events = POLLIN | POLLRDHUP};

    do
        econf_plugin_run(); /* before the first wait, too: requests may have come with an answer */
    while (!stopping &&
           (ppoll(&ready, 1, NULL, while_waiting) < 0 || (ready.revents & ~POLLIN) == 0));
}

static void stop(int signal_number) {
    (void)signal_number;
    stopping = 1;
}

int main(void) {
    int delay_ms = first_delay_ms;
    sigset_t ending;
    sigset_t while_waiting;

    (void)signal(SIGPIPE, SIG_IGN); /* a dying daemon must not take this process with it */
    (void)signal(SIGTERM, stop);
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigprocmask(SIG_BLOCK, &ending, &while_waiting); /* it comes while waiting, or not at all */
    (void)setvbuf(stdout, NULL, _IOLBF, 0);
    econf_plugin_config_debug(DBG_ERROR, 1);

    while (!stopping) {
        int sock = register_plugin();
        if (sock >= 0) {
            delay_ms = first_delay_ms;
            serve(sock, &while_waiting);
            econf_plugin_close();
        }
        struct timespec delay = {delay_ms / 1000, delay_ms % 1000 * 1000000L};
        if (!stopping)
            (void)ppoll(NULL, 0, &delay, &while_waiting);
        delay_ms = delay_ms < longest_delay_ms / 2 ? delay_ms * 2 : longest_delay_ms;
    }
    return 0;
}
