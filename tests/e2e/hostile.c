/*
 * A peer that keeps no manners: hostile [agent] ATTACK [COUNT [CONNECTIONS]]
 *
 * Those that connect end with 0 once pelmsim has hung up, or has answered a last request that was in
 * order, behind all the others: whatever came before has been dealt with. With several connections
 * they say so, and stay until they are hung up on.
 */
#define _GNU_SOURCE

#include <conf_agent.h>
#include <conf_api.h>
#include <conf_plugin.h>

#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

enum { mebibyte = 1024 * 1024 };

static int is_agent;

static int connected(void) {
    const char* path = is_agent ? g_conf_agent_socket : g_conf_plugin_socket;
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    int sock = socket(AF_UNIX, SOCK_STREAM, 0);

    memcpy(address.sun_path, path, strnlen(path, sizeof address.sun_path - 1));
    return connect(sock, (const struct sockaddr*)&address, sizeof address) < 0 ? -1 : sock;
}

/* Waits for room. What it says no more, pelmsim has hung up on. */
static int say(int sock, const void* bytes, size_t count) {
    const char* next = bytes;
    ssize_t written = 0;

    for (; count > 0 && written >= 0; next += written, count -= (size_t)written)
        written = write(sock, next, count);
    return written < 0 ? -1 : 0;
}

static int say_frame(int sock, const char* body, size_t count) {
    const msg_head_t header = {CONF_MSG_MAGIC, (u32_t)count, 0, 0};

    return say(sock, &header, sizeof header) < 0 ? -1 : say(sock, body, count);
}

static int wait_until_heard(int sock) {
    const char* last = is_agent ? "<rpc message-id='1'><get-capability/></rpc>"
                                : "<rpc><method>deactivate</method><params/><id>1</id></rpc>";
    struct pollfd heard = {.fd = sock, .events = POLLIN};

    (void)say_frame(sock, last, strlen(last));
    return poll(&heard, 1, -1) < 0;
}

static void register_one(int sock) {
    char text[200];
    int bytes =
        snprintf(text, sizeof text,
                 "<rpc><method>register</method><params><plugin-name>hostile %d</plugin-name>"
                 "</params><id>1</id></rpc>",
                 (int)getpid());

    (void)say_frame(sock, text, (size_t)bytes);
}

/* A body that repeats itself, with a number in front of what follows, unless that is null; and in the
 * end with the number of the connection, unless what follows that is null. */
struct body {
    const char* name;
    const char* begin;
    const char* repeated;
    const char* behind_number;
    int times;
    const char* end;
    const char* behind_connection;
};

static const struct body bodies[] = {
    {"attributes", "<a", " a", "=''", 100000, "/>", NULL},
    {"namespaces", "<a", " xmlns:n", "='u'", 4500, "><n1:b/></a>", NULL},
    {"levels", "", "<a>", NULL, 4 * mebibyte, "", NULL},
    {"elements", "<a>", "<a/>", NULL, 8 * mebibyte, "</a>", NULL},
    {"references", "<a>", "&#65;", NULL, 8 * mebibyte, "</a>", NULL},
    {"unknown", "<a>", "&x;", NULL, 8 * mebibyte, "</a>", NULL},
    {"ends", "<a>", "</b>", NULL, 8 * mebibyte, "</a>", NULL},
    {"controls", "<a>", "\001\377", NULL, mebibyte, "</a>", NULL},
    {"paths",
     "<rpc><method>register</method><params><plugin-name>p</plugin-name><config-subscribe>",
     "<subscriber><path>/a", "</path></subscriber>", 100000,
     "</config-subscribe></params><id>1</id></rpc>", NULL},
    {"long", "<rpc><method>register</method><params><config-subscribe>",
     "<subscriber><path>/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a",
     "</path></subscriber>", 4000, "</config-subscribe><plugin-name>p",
     "</plugin-name></params><id>1</id></rpc>"},
    {"parent", "<rpc message-id='1'><create-session><username>u</username><agent-ppid>", "9", NULL,
     9 * mebibyte, "</agent-ppid></create-session></rpc>", NULL},
    {"name", "<rpc><method>register</method><params><plugin-name>", "long", NULL, 4 * mebibyte,
     "</plugin-name></params><id>1</id></rpc>", NULL},
    {"bomb",
     "<!DOCTYPE a [<!ENTITY b 'bbbbbbbbbbbbbbbbbbbb'><!ENTITY c '&b;&b;&b;&b;&b;&b;&b;&b;&b;'>"
     "<!ENTITY d '&c;&c;&c;&c;&c;&c;&c;&c;&c;'><!ENTITY e '&d;&d;&d;&d;&d;&d;&d;&d;&d;'>]><a>",
     "&e;", NULL, 10000, "</a>", NULL},
};

static int send_body(const struct body* which, int times, int connection) {
    int sock = connected(), result;
    char* text = NULL;
    size_t bytes = 0;
    FILE* made = open_memstream(&text, &bytes);

    if (made == NULL)
        return 3;
    (void)fputs(which->begin, made);
    for (int i = 0; i < times; ++i) {
        (void)fputs(which->repeated, made);
        if (which->behind_number != NULL)
            (void)fprintf(made, "%d%s", i, which->behind_number);
    }
    (void)fputs(which->end, made);
    if (which->behind_connection != NULL)
        (void)fprintf(made, "%d%s", connection, which->behind_connection);
    (void)fclose(made);
    (void)say_frame(sock, text, bytes);
    result = wait_until_heard(sock);
    free(text);
    return result;
}

/* All that lies at /big, and no answer is read. */
static int ask(int count) {
    static const char body[] =
        "<rpc><method>pull</method><params><path>/big</path></params><id>1</id></rpc>";
    struct pollfd hung_up = {.fd = connected()};

    register_one(hung_up.fd);
    for (; count > 0; --count)
        (void)say_frame(hung_up.fd, body, sizeof body - 1);
    return poll(&hung_up, 1, -1) < 0;
}

/* Elements side by side, each with a name of its own. */
static int names(int count) {
    static char text[10 * mebibyte];
    int sock = connected();
    int bytes = sprintf(text, "<rpc><method>push</method><params><path>/names</path><data>");

    for (int i = 0; i < count; ++i)
        bytes += sprintf(text + bytes, "<n%d><a/></n%d>", i, i);
    bytes += sprintf(text + bytes, "</data></params><id>1</id></rpc>");
    register_one(sock);
    (void)say_frame(sock, text, (size_t)bytes);
    return wait_until_heard(sock);
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

/* Numbers that are the same each time. */
static int garbage(int count) {
    int sock = connected();
    unsigned state = 1, words[1024];

    for (; count > 0; --count) {
        for (size_t i = 0; i < sizeof words / sizeof *words; ++i)
            words[i] = state = state * 1664525 + 1013904223;
        (void)say(sock, words, sizeof words);
    }
    return wait_until_heard(sock);
}

/* Frames that never end, on so many connections, until all but the last few are hung up on. */
static int endless(int count) {
    static char much[mebibyte];
    const msg_head_t header = {CONF_MSG_MAGIC, CONF_MSG_MAX_LENGTH, 0, 0};
    int hung_up = 0;

    for (; count > 0; --count) {
        int sock = connected();
        (void)say(sock, &header, sizeof header);
        for (int i = 0; i < 100; ++i)
            if (say(sock, much, sizeof much) < 0)
                ++hung_up;
    }
    return hung_up == 0 ? 0 : 3; /* it is one that came before */
}

static int connections(int count) {
    struct rlimit files;
    int made = 0, sock = -1;

    (void)getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    (void)setrlimit(RLIMIT_NOFILE, &files);
    for (; made < count && (sock = connected()) >= 0; ++made)
        (void)say(sock, "<", 1);
    return sock < 0;
}

static const struct {
    const char* name;
    int (*run)(int count);
} attacks[] = {
    {"ask", ask},     {"connections", connections}, {"endless", endless},
    {"flood", flood}, {"garbage", garbage},         {"names", names},
};

static int send_bodies(const struct body* which, int times, int connections) {
    struct pollfd hung_up = {.fd = -1};
    int result = 0;

    for (int i = 0; i < connections && result == 0; ++i)
        result = send_body(which, times == 0 ? which->times : times, i);
    if (connections == 1 || result != 0)
        return result;
    hung_up.fd = connected();
    puts("stays connected");
    (void)fflush(stdout);
    return poll(&hung_up, 1, -1) < 0;
}

int main(int argc, char** argv) {
    is_agent = argc > 1 && strcmp(argv[1], "agent") == 0;
    argc -= is_agent;
    argv += is_agent;
    const char* name = argc > 1 ? argv[1] : "";
    const int count = argc > 2 ? atoi(argv[2]) : 0;

    (void)signal(SIGPIPE, SIG_IGN);
    (void)conf_load_config(NULL); /* where the sockets are */
    for (size_t i = 0; i < sizeof attacks / sizeof *attacks; ++i)
        if (strcmp(name, attacks[i].name) == 0)
            return attacks[i].run(count);
    for (size_t i = 0; i < sizeof bodies / sizeof *bodies; ++i)
        if (strcmp(name, bodies[i].name) == 0)
            return send_bodies(&bodies[i], count, argc > 3 ? atoi(argv[3]) : 1);
    return 2;
}
