// sd-bus: a method call with a string and an empty answer, peer to peer or through dbus-daemon.
#define _GNU_SOURCE
#include "bus.h"
#include "drive.h"
#include "texts.h"

#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

static sd_bus* bus;
static int door = -1;
static long served;
static struct text request;
static const char* destination;

static int on_publish(sd_bus_message* call, void* data, sd_bus_error* error) {
    const char* text = NULL;
    (void)data, (void)error;
    must(sd_bus_message_read(call, "s", &text) >= 0, "reading a call");
    ++served;
    return sd_bus_reply_method_return(call, "");
}

static const sd_bus_vtable methods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Publish", "s", "", on_publish, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

static struct sockaddr_un socket_in(const char* directory) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    (void)snprintf(address.sun_path, sizeof address.sun_path, "%.80s/socket", directory);
    return address;
}

static void start_peer(int sock, int is_server) {
    const sd_id128_t id = {{1}};
    must(sd_bus_new(&bus) >= 0 && sd_bus_set_fd(bus, sock, sock) >= 0, "sd_bus_new");
    must(!is_server || sd_bus_set_server(bus, 1, id) >= 0, "sd_bus_set_server");
    must(sd_bus_start(bus) >= 0, "sd_bus_start");
}

void serve(const struct load* load, const char* directory) {
    if (strcmp(load->mode, "bus") == 0) {
        must(sd_bus_open_user(&bus) >= 0, "sd_bus_open_user");
    } else {
        const struct sockaddr_un address = socket_in(directory);
        const int sock = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        must(connect(sock, (const struct sockaddr*)&address, sizeof address) == 0, "connect");
        start_peer(sock, 0);
    }
    must(sd_bus_add_object_vtable(bus, NULL, BUS_PATH, BUS_NAME, methods, NULL) >= 0, "vtable");
    if (strcmp(load->mode, "bus") == 0)
        must(sd_bus_request_name(bus, BUS_NAME, 0) >= 0, "sd_bus_request_name");
    while (served < load->requests) {
        const int done = sd_bus_process(bus, NULL);
        must(done >= 0 && (done > 0 || sd_bus_wait(bus, UINT64_MAX) >= 0), "sd_bus_process");
    }
    (void)sd_bus_flush(bus);
}

void open_door(const struct load* load, const char* directory) {
    request = publish_body(load->bytes);
    if (strcmp(load->mode, "bus") == 0) {
        start_bus(directory);
        return;
    }
    const struct sockaddr_un address = socket_in(directory);
    door = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    must(bind(door, (const struct sockaddr*)&address, sizeof address) == 0 && listen(door, 1) == 0,
         "bind");
}

void meet(const struct load* load) {
    if (strcmp(load->mode, "bus") != 0) {
        start_peer(accept4(door, NULL, NULL, SOCK_CLOEXEC | SOCK_NONBLOCK), 1);
        return;
    }
    destination = BUS_NAME;
    must(sd_bus_open_user(&bus) >= 0, "sd_bus_open_user");
    while (sd_bus_get_name_creds(bus, BUS_NAME, 0, NULL) < 0)
        (void)usleep(1000); // until the plugin has taken its name
}

void ask(void) {
    sd_bus_message* reply = NULL;
    must(sd_bus_call_method(bus, destination, BUS_PATH, BUS_NAME, "Publish", NULL, &reply, "s",
                            request.bytes) >= 0,
         "sd_bus_call_method");
    (void)sd_bus_message_unref(reply);
}
