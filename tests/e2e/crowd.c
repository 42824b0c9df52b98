/*
 * Many plugins: crowd COUNT starts so many, each in a process of its own, and says when all of them
 * are active, and when all have heard of a change. Ends with 0 when all of them ended so.
 */
#include <conf_api.h>

#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

enum { is_active = 'a', has_heard = 'h' };

static int reports[2]; /* a byte for each thing that a plugin has to say */

static void report(char what) {
    if (write(reports[1], &what, 1) != 1)
        _exit(5);
}

static int changed(int session, int oper, int more, int priority, const char* path) {
    (void)session, (void)oper, (void)more, (void)priority, (void)path;
    report(has_heard);
    return 0;
}

static int be_plugin(int number) {
    char name[16];
    econf_config_cb_info_t configs[] = {{"/crowd", 1, changed}, {NULL, 0, NULL}};
    econf_plugin_subpub_info_t info = {configs, NULL, NULL, NULL};
    struct pollfd ready = {.events = POLLIN};

    (void)snprintf(name, sizeof name, "p%d", number);
    ready.fd = econf_plugin_init(name, &info);
    if (ready.fd < 0 || econf_plugin_activate(ACTIVATE_WITH_NONE) < 0)
        return 4;
    report(is_active);
    do
        econf_plugin_run();
    while (poll(&ready, 1, -1) == 1 && ready.revents == POLLIN);
    econf_plugin_close();
    return 0;
}

static void count(const int total) {
    int active = 0, told = 0;
    char what;

    while (read(reports[0], &what, 1) == 1)
        if (what == is_active && ++active == total)
            printf("%d are active\n", active);
        else if (what == has_heard && ++told == total)
            printf("%d have heard\n", told);
}

int main(int argc, char** argv) {
    const int total = argc == 2 ? atoi(argv[1]) : 0;
    int status = 0, failures = total < 1 || pipe(reports) < 0;

    (void)signal(SIGPIPE, SIG_IGN);
    (void)setvbuf(stdout, NULL, _IOLBF, 0);
    for (int i = 0; i < total && failures == 0; ++i)
        switch (fork()) {
        case 0:
            return be_plugin(i);
        case -1:
            ++failures;
        }
    (void)close(reports[1]);
    count(total);
    while (wait(&status) > 0)
        failures += status != 0;
    return failures != 0;
}
