/*
 * A peer that keeps no manners: hostile ask COUNT asks for all that lies at /big so often, reads no
 * answer, and waits until pelmsim hangs up; hostile flood COUNT sends so many notifications.
 */
#include <conf_api.h>
#include <conf_plugin.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int ask(int count) {
    static const char body[] =
        "<rpc><method>pull</method><params><path>/big</path></params><id>1</id></rpc>";
    const msg_head_t header = {CONF_MSG_MAGIC, sizeof body - 1, 0, 0};
    econf_plugin_subpub_info_t nothing = {NULL, NULL, NULL, NULL};
    struct pollfd hung_up = {.fd = econf_plugin_init("hostile", &nothing)};

    (void)fcntl(hung_up.fd, F_SETFL, 0); /* as the library does not: each write waits for room */
    for (; count > 0; --count) {
        (void)!write(hung_up.fd, &header, sizeof header);
        (void)!write(hung_up.fd, body, sizeof body - 1);
    }
    return poll(&hung_up, 1, -1) < 0;
}

static int flood(int count) {
    char name[] = "n", text[64];
    int failures = 0;

    for (int i = 1; i <= count; ++i) {
        (void)snprintf(text, sizeof text, "<n>\n00:00:00.000 %d</n>", i);
        failures += conf_notify(name, text) < 0;
    }
    return failures;
}

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    (void)signal(SIGPIPE, SIG_IGN);
    return strcmp(argv[1], "ask") == 0 ? ask(atoi(argv[2])) : flood(atoi(argv[2]));
}
