/*
 * A plugin on an event loop that does what loops have to bear. Linked with each of examples/loops/.
 *
 * Its operation /story does what the input names, one element.
 */
#include "loop.h"

#include <conf_api.h>

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static int losses;
static int is_last;             /* whether the next kick-off is the end */
static int taken[2] = {-1, -1}; /* a pipe that has the number of the connection that was closed */

static int tell(int session_id, xmlNode* input, xmlNode** output);
static void kick_off(void);
static char path[] = "/story";
static econf_operate_cb_info_t operations[] = {{path, tell}, {NULL, NULL}};
static econf_plugin_subpub_info_t info = {NULL, NULL, operations, kick_off};

static void lost(void);

static int begin_again(void) {
    if (econf_plugin_init("story", &info) < 0)
        return -1;
    if (econf_plugin_activate(ACTIVATE_WITH_NONE) == 0 && loop_attach(lost) == 0)
        return 0;
    econf_plugin_close();
    return -1;
}

static void begin(void) {
    if (begin_again() < 0)
        loop_after(20, begin);
    else
        loop_asked();
}

static void lost(void) {
    printf("loss %d\n", ++losses);
    begin();
}

/* Tells how many descriptors are open, too, beyond those of the first time. */
static void ask(void) {
    static int first;
    int open = 0;
    xmlNode* found = NULL;
    for (int fd = 0; fd < 256; fd++)
        open += fcntl(fd, F_GETFD) >= 0;
    first = first == 0 ? open : first;
    if (econf_plugin_pull(0, "/story", &found) == 0)
        printf("asked with %d more\n", open - first);
    xmlFreeNodeList(found);
    loop_asked();
}

/* What was written into the pipe is there still, for nobody has taken it for the connection. */
static void come_back(void) {
    char byte = 0;
    if (read(taken[0], &byte, 1) == 1 && byte == 'x')
        puts("untouched");
    (void)close(taken[0]);
    (void)close(taken[1]);
    begin();
}

static void close_it(void) {
    econf_plugin_close();
    if (pipe(taken) == 0 && write(taken[1], "x", 1) == 1)
        loop_after(50, come_back);
}

static void wake(void) {
    if (econf_plugin_activate(ACTIVATE_WITH_NONE) == 0)
        puts("awake");
    loop_asked();
}

static int tell(int session_id, xmlNode* input, xmlNode** output) {
    const char* what = (const char*)input->name;
    (void)session_id, (void)output;
    if (strcmp(what, "ask") == 0) {
        loop_after(1, ask);
    } else if (strcmp(what, "close") == 0) {
        close_it();
    } else if (strcmp(what, "again") == 0) {
        econf_plugin_close();
        return begin_again();
    } else if (strcmp(what, "rest") == 0) {
        econf_plugin_deactivate();
        loop_after(50, wake);
    } else {
        is_last = 1;
        loop_after(1, ask);
    }
    return 0;
}

static void end(void) {
    econf_plugin_close();
    loop_stop();
}

static void kick_off(void) {
    puts("kicked");
    if (is_last)
        end();
}

int main(void) {
    (void)signal(SIGPIPE, SIG_IGN);
    (void)setvbuf(stdout, NULL, _IOLBF, 0);
    (void)econf_plugin_config_debug(DBG_ERROR, 1);
    int status = loop_run(begin, end);
    printf("%d losses\n", losses);
    return status;
}
