/*
 * The two ends of tapped connections: tap_ends daemon|plugin
 *
 * They send each other all that the rows below say, a connection for each, and look whether what comes
 * is what the other sent, byte for byte, and ends where that ended.
 */
#define _GNU_SOURCE

#include <conf_agent.h>
#include <conf_plugin.h>

#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

enum { mebibyte = 1024 * 1024, room = 3 * mebibyte };

typedef struct {
    char bytes[room];
    size_t size;
} payload_t;

static void put(payload_t* all, const void* bytes, size_t count) {
    memcpy(all->bytes + all->size, bytes, count);
    all->size += count;
}

static void put_text(payload_t* all, const char* text, int times) {
    while (times-- > 0)
        put(all, text, strlen(text));
}

static void put_header(payload_t* all, unsigned length) {
    msg_head_t header = {CONF_MSG_MAGIC, length, 0, 0};
    put(all, &header, sizeof header);
}

/* Fills in the length of the frame that begins there. */
static void end_frame(payload_t* all, size_t begin) {
    unsigned length = (unsigned)(all->size - begin - sizeof(msg_head_t));
    memcpy(all->bytes + begin + 4, &length, sizeof length);
}

static void any_bytes(payload_t* all) {
    unsigned number = 20260131;
    for (; all->size < room; all->bytes[all->size++] = (char)(number >> 16))
        number = number * 1103515245 + 12345;
}

static void unfinished(payload_t* all) {
    put_header(all, CONF_MSG_MAX_LENGTH);
    put_text(all, "<a>", 2 * mebibyte / 3);
}

static void frames(payload_t* all) {
    for (int i = 0; i < 3000; ++i) {
        size_t begin = all->size;
        put_header(all, 0);
        put_text(all, "<rpc><method>m</method><params/><id>1</id></rpc>", 1);
        end_frame(all, begin);
    }
}

static void no_utf8(payload_t* all) {
    put_header(all, 0);
    put_text(all, "<rpc><method>\xFF\xC3\x28</method></rpc>", 1);
    end_frame(all, 0);
}

static const struct {
    const char* name;
    void (*make)(payload_t* all);
    size_t most; /* that is written at once */
    int in_turn; /* the daemon says nothing before the plugin has said all */
} rows[] = {
    {"any bytes", any_bytes, 5000, 0},
    {"frames", frames, 65536, 1},
    {"unfinished", unfinished, 65536, 0},
    {"no UTF-8", no_utf8, 1, 1},
};

/* Says all, and then that this was all. */
static size_t say(int sock, const payload_t* all, size_t sent, size_t most) {
    size_t left = all->size - sent < most ? all->size - sent : most;
    ssize_t count = send(sock, all->bytes + sent, left, MSG_NOSIGNAL | MSG_DONTWAIT);
    sent += count > 0 ? (size_t)count : 0;
    if (sent == all->size)
        (void)shutdown(sock, SHUT_WR);
    return sent;
}

/* The other end sends the same. Returns 0 when it came, to its end. */
static int exchange(int sock, const payload_t* all, size_t most, int is_second) {
    static char came[65536];
    size_t sent = 0, received = 0;
    for (int is_end = 0; !is_end || sent < all->size;) {
        int says = sent < all->size && (is_end || !is_second);
        int events = (is_end ? 0 : POLLIN) | (says ? POLLOUT : 0);
        struct pollfd its = {sock, (short)events, 0};
        (void)poll(&its, 1, -1);
        if ((its.revents & POLLOUT) != 0)
            sent = say(sock, all, sent, most);
        if ((its.revents & POLLIN) == 0)
            continue;
        ssize_t count = recv(sock, came, sizeof came, MSG_DONTWAIT);
        if (count < 0 || received + (size_t)count > all->size ||
            memcmp(came, all->bytes + received, (size_t)count) != 0)
            return -1;
        received += (size_t)count;
        is_end = count == 0;
    }
    return received == all->size ? 0 : -1;
}

static int connect_to(const char* path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    int sock = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int most = sizeof address.sun_path - 1;
    (void)snprintf(address.sun_path, sizeof address.sun_path, "%.*s", most, path);
    return connect(sock, (struct sockaddr*)&address, sizeof address) == 0 ? sock : -1;
}

static int accept_at(int service) {
    struct pollfd its = {service, POLLIN, 0};
    (void)poll(&its, 1, -1);
    return accept4(service, NULL, NULL, SOCK_CLOEXEC);
}

/* Agents' connections and those of plugins take turns. */
static int next_connection(const int* services, size_t row) {
    if (services[0] >= 0)
        return accept_at(services[row % 2]);
    return connect_to(row % 2 == 0 ? g_conf_plugin_socket : g_conf_agent_socket);
}

int main(int argc, char** argv) {
    static payload_t all;
    const char* what = argc > 1 ? argv[1] : "";
    int services[3] = {-1, -1, -1};
    int result = 0;
    if (strcmp(what, "daemon") == 0) {
        services[0] = conf_plugin_service_enable();
        services[1] = conf_agent_service_enable();
        services[2] = conf_plugin_notifier_enable();
    }
    for (size_t i = 0; i < sizeof rows / sizeof *rows; ++i) {
        int sock = next_connection(services, i);
        all.size = 0;
        rows[i].make(&all);
        int is_second = rows[i].in_turn && services[0] >= 0;
        int is_good = exchange(sock, &all, rows[i].most, is_second) == 0;
        printf("%s: %s\n", rows[i].name, is_good ? "as it was sent" : "NOT AS IT WAS SENT");
        result |= !is_good;
        (void)close(sock);
    }
    if (services[0] >= 0) {
        conf_plugin_service_disable(services[0]);
        conf_agent_service_disable(services[1]);
        conf_plugin_notifier_disable(services[2]);
    }
    return result;
}
