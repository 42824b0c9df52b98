/*
 * A plugin that gets stuck: stuck [early|debugged]
 *
 * Its operation /stuck does so in the way that the input names, one element. An early one does
 * before it goes active; one that is debugged has a tracer, and takes a second to answer.
 */
#define _GNU_SOURCE

#include <conf_api.h>
#include <conf_misc.h>
#include <conf_plugin.h>

#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static struct pollfd connection = {.events = POLLIN | POLLRDHUP};

static int sleep_for(int seconds) {
    struct timespec time = {.tv_sec = seconds};
    return nanosleep(&time, NULL);
}

/* Nobody ever writes into this pipe. */
static int read_in_vain(void) {
    int ends[2];
    char byte;
    return pipe(ends) < 0 || read(ends[0], &byte, 1) < 0;
}

/* For the script, which lets it go on. */
static int stop(void) {
    FILE* file = fopen("/var/tmp/stuck", "w");
    if (file == NULL || fprintf(file, "%d\n", (int)getpid()) < 0 || fclose(file) != 0)
        return 1;
    return raise(SIGSTOP);
}

/* The child has the connection to itself once its parent has gone, and is no reader. */
static int leave_it_to_a_child(void) {
    int parent[2];
    char byte;
    if (pipe(parent) < 0)
        return 1;
    if (fork() > 0)
        _exit(0);
    (void)close(parent[1]);
    (void)!read(parent[0], &byte, 1);
    puts("alone");
    connection.events = POLLRDHUP;
    (void)poll(&connection, 1, -1);
    _exit(0);
}

/* The tracer, which hands signals on, ends with this process. */
static void be_traced(void) {
    pid_t plugin = getpid();
    int ready[2], status;
    char byte = 0;
    if (pipe(ready) < 0 || fork() > 0) {
        (void)close(ready[1]);
        (void)!read(ready[0], &byte, 1);
        return;
    }
    (void)close(connection.fd);
    (void)signal(SIGTERM, SIG_IGN); /* it goes to both, and is to reach the other one */
    if (ptrace(PTRACE_SEIZE, plugin, NULL, 0) != 0)
        puts("may not be traced");
    (void)!write(ready[1], &byte, 1);
    while (waitpid(plugin, &status, __WALL) == plugin && WIFSTOPPED(status))
        (void)ptrace(PTRACE_CONT, plugin, NULL, (long)WSTOPSIG(status));
    _exit(0);
}

static int operate(int session_id, xmlNode* input, xmlNode** output) {
    const char* how = (const char*)input->name;
    xmlNode* found = NULL;
    (void)session_id;
    (void)output;
    puts(how);
    if (strcmp(how, "doze") == 0)
        return sleep_for(1);
    if (strcmp(how, "sleep") == 0)
        return sleep_for(600);
    if (strcmp(how, "read") == 0)
        return read_in_vain();
    if (strcmp(how, "stop") == 0)
        return stop();
    if (strcmp(how, "leave") == 0)
        return leave_it_to_a_child();
    return econf_plugin_pull(0, "/a", &found) < 0;
}

int main(int argc, char** argv) {
    char path[] = "/stuck";
    econf_operate_cb_info_t operations[] = {{path, operate}, {NULL, NULL}};
    econf_plugin_subpub_info_t info = {NULL, NULL, operations, NULL};

    (void)signal(SIGPIPE, SIG_IGN);
    (void)setvbuf(stdout, NULL, _IOLBF, 0);
    connection.fd = econf_plugin_init("stuck", &info);
    if (argc > 1 && strcmp(argv[1], "early") == 0)
        return read_in_vain();
    if (argc > 1)
        be_traced();
    if (econf_plugin_activate(ACTIVATE_WITH_NONE) < 0)
        return 4;
    do
        econf_plugin_run();
    while (poll(&connection, 1, -1) > 0 && (connection.revents & ~POLLIN) == 0);
    econf_plugin_close();
    return 0;
}
