/*
 * Registers the callbacks of sample-plugin.c and serves the daemon until SIGTERM. When the daemon goes
 * away, it registers again.
 */
#define _GNU_SOURCE /* ppoll, POLLRDHUP */

#include <conf_api.h>
#include <conf_debug.h>

#include <poll.h>
#include <signal.h>
#include <stdio.h>

enum { first_delay_ms = 100, longest_delay_ms = 10000 };

extern econf_plugin_subpub_info_t callbacks; /* of sample-plugin.c */

static volatile sig_atomic_t stopping;

static int register_plugin(void) {
    int sock = econf_plugin_init("sample-plugin", &callbacks);
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
