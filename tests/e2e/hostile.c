/*
 * A peer that keeps no manners: hostile ORDER [ARGUMENT...]
 *
 * What it is to do stands beside each order in the table at the end. It ends with 0 when pelmsim
 * bore it as it should. Its arguments go into the XML as they are.
 */
#define _GNU_SOURCE

#include <conf_plugin.h>

#include <dirent.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

static int plugin_socket(int flags) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    int sock = socket(AF_UNIX, SOCK_STREAM | flags, 0);
    strcpy(address.sun_path, g_conf_plugin_socket);
    if (connect(sock, (const struct sockaddr*)&address, sizeof address) == 0)
        return sock;
    close(sock);
    return -1;
}

static int send_rpc(int sock, const char* method, const char* params) {
    static const char form[] = "<rpc><method>%s</method><params>%s</params><id>1</id></rpc>";
    size_t length = sizeof form - sizeof "%s%s" + strlen(method) + strlen(params);
    msg_head_t header = {CONF_MSG_MAGIC, (u32_t)length, 0, 0};
    int failed = send(sock, &header, sizeof header, 0) < 0;
    return failed || dprintf(sock, form, method, params) < 0;
}

/* Reads one answer, for the caller to free; null when the connection ends. */
static char* read_answer(int sock, size_t* length) {
    msg_head_t header;
    char* text = NULL;
    if (recv(sock, &header, sizeof header, MSG_WAITALL) != (ssize_t)sizeof header)
        return NULL;
    *length = header.length;
    text = calloc(1, *length + 1);
    if (recv(sock, text, *length, MSG_WAITALL) == (ssize_t)*length)
        return text;
    free(text);
    return NULL;
}

/* The length of the result that is answered; 0 when there is none. */
static size_t ask(int sock, const char* method, const char* params) {
    size_t length = 0;
    char* answer = send_rpc(sock, method, params) ? NULL : read_answer(sock, &length);
    int is_result = answer != NULL && strstr(answer, "<result") != NULL;
    free(answer);
    return is_result ? length : 0;
}

static int registered(const char* name, const char* path) {
    char params[1024];
    int sock = plugin_socket(0);
    snprintf(params, sizeof params,
             "<plugin-name>%s</plugin-name><config-subscribe><subscriber><path>%s</path>"
             "<priority>1</priority><callback>1</callback></subscriber></config-subscribe>",
             name, path);
    if (sock < 0 || ask(sock, "register", params) == 0 || ask(sock, "activate", "") == 0)
        exit(2);
    puts("registered");
    return sock;
}

static int stay(char** arguments) {
    registered(arguments[0], arguments[1]);
    return pause();
}

/* A plugin that has pushed three values of 8 MB each. */
static int laden(void) {
    static const char form[] = "<path>/big/v%c</path><data>%08000000d</data>";
    char* params = malloc(8001000);
    int sock = registered("laden", "/big");
    for (int name = '1'; name <= '3'; ++name) {
        sprintf(params, form, name, 0);
        if (ask(sock, "push", params) == 0)
            exit(2);
    }
    free(params);
    return sock;
}

static int read_large(char** arguments) {
    (void)arguments;
    return ask(laden(), "pull", "<path>/big</path>") < 24000000;
}

static int read_nothing(char** arguments) {
    struct pollfd hung_up = {.fd = laden()};
    (void)arguments;
    for (int i = 0; i < 100; ++i)
        (void)send_rpc(hung_up.fd, "pull", "<path>/big</path>");
    return poll(&hung_up, 1, -1) < 0;
}

/* Whether pelmsim uses less than half of the processor time that this process uses meanwhile. */
static int is_calm(void) {
    enum { burnt_ms = 300 };
    struct timespec before, after;
    clockid_t its_clock;
    clock_t begin = clock();
    if (clock_getcpuclockid(getppid(), &its_clock) != 0)
        exit(2);
    clock_gettime(its_clock, &before);
    while (clock() - begin < burnt_ms * (CLOCKS_PER_SEC / 1000))
        ;
    clock_gettime(its_clock, &after);
    return (after.tv_sec - before.tv_sec) * 1000 + (after.tv_nsec - before.tv_nsec) / 1000000 <
           burnt_ms / 2;
}

static int turn_deaf(char** arguments) {
    int sock = laden();
    (void)arguments;
    (void)shutdown(sock, SHUT_RD);
    (void)send_rpc(sock, "pull", "<path>/big</path>");
    (void)ask(plugin_socket(0), "pull", "<path>/</path>"); /* behind that, it is at rest */
    return !is_calm();
}

static int hold(char** arguments) {
    for (int i = atoi(arguments[0]); i > 0; --i)
        if (plugin_socket(0) < 0)
            return 1;
    puts("held");
    return pause();
}

/* Whether each descriptor that pelmsim may have is in use. */
static int has_used_all(void) {
    char name[64];
    struct rlimit limit; /* is inherited */
    int count = -2;      /* "." and ".." */
    DIR* descriptors;
    snprintf(name, sizeof name, "/proc/%d/fd", (int)getppid());
    descriptors = opendir(name);
    while (descriptors != NULL && readdir(descriptors) != NULL)
        ++count;
    closedir(descriptors);
    return getrlimit(RLIMIT_NOFILE, &limit) != 0 || (rlim_t)count >= limit.rlim_cur;
}

static int fill(char** arguments) {
    int first = plugin_socket(0), last = first, sock;
    (void)arguments;
    while ((sock = plugin_socket(SOCK_NONBLOCK)) >= 0 || !has_used_all())
        if (sock >= 0)
            last = sock;
        else
            sched_yield();
    if (!is_calm())
        return 1;
    while (last >= first)
        close(last--);
    registered("late", "/late");
    return 0;
}

static int flood(char** arguments) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    int sock = socket(AF_UNIX, SOCK_DGRAM, 0);
    strcpy(address.sun_path, g_conf_notifier_socket);
    (void)connect(sock, (const struct sockaddr*)&address, sizeof address);
    for (int i = 1; i <= atoi(arguments[0]); ++i)
        if (dprintf(sock, "<n>\n00:00:00.000 %d</n>", i) < 0)
            return 1;
    return 0;
}

static const struct {
    const char* name;
    int (*run)(char** arguments);
} orders[] = {
    {"register", stay},             /* under this NAME for this PATH; then it is silent */
    {"read_large", read_large},     /* gets an answer of 24 MB */
    {"read_nothing", read_nothing}, /* asks for such answers until pelmsim hangs up */
    {"turn_deaf", turn_deaf},       /* asks for one and shuts its ear: pelmsim is at rest then */
    {"hold", hold},                 /* opens so many connections and keeps them */
    {"fill", fill}, /* opens as many as pelmsim bears, which is at rest then and later serves on */
    {"flood", flood}, /* sends so many notifications */
};

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    setvbuf(stdout, NULL, _IOLBF, 0);
    for (size_t i = 0; argc > 1 && i < sizeof orders / sizeof *orders; ++i)
        if (strcmp(argv[1], orders[i].name) == 0)
            return orders[i].run(argv + 2);
    return 2;
}
