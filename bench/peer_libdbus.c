// libdbus: a method call with a string and an empty answer, peer to peer or through dbus-daemon.
#define _GNU_SOURCE
#include "bus.h"
#include "drive.h"
#include "texts.h"

#include <dbus/dbus.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static DBusConnection* connection;
static DBusServer* server;
static struct text request;
static const char* destination;

static DBusConnection* open_bus(void) {
    DBusConnection* const bus =
        dbus_connection_open_private(getenv("DBUS_SESSION_BUS_ADDRESS"), NULL);
    must(bus != NULL && dbus_bus_register(bus, NULL), "connecting to the bus");
    return bus;
}

void serve(const struct load* load, const char* directory) {
    if (strcmp(load->mode, "bus") == 0) {
        connection = open_bus();
        must(dbus_bus_request_name(connection, BUS_NAME, 0, NULL) > 0, "dbus_bus_request_name");
    } else {
        char address[160];
        (void)snprintf(address, sizeof address, "unix:path=%s/socket", directory);
        connection = dbus_connection_open_private(address, NULL);
    }
    must(connection != NULL, "connecting");
    for (long served = 0;;) {
        // The first request may have come together with the name.
        for (DBusMessage* call; (call = dbus_connection_pop_message(connection)) != NULL;) {
            if (dbus_message_is_method_call(call, BUS_NAME, "Publish")) {
                const char* text = NULL;
                must(dbus_message_get_args(call, NULL, DBUS_TYPE_STRING, &text,
                                           DBUS_TYPE_INVALID) != 0,
                     "reading a call");
                DBusMessage* const reply = dbus_message_new_method_return(call);
                (void)dbus_connection_send(connection, reply, NULL);
                dbus_connection_flush(connection);
                dbus_message_unref(reply);
                ++served;
            }
            dbus_message_unref(call);
        }
        if (served == load->requests)
            return;
        must(dbus_connection_read_write(connection, -1) != 0, "dbus_connection_read_write");
    }
}

static void take(DBusServer* from, DBusConnection* accepted, void* data) {
    (void)from, (void)data;
    connection = dbus_connection_ref(accepted);
}

// The server watches one descriptor, which this program waits for by itself.
static DBusWatch* door;
static dbus_bool_t add_watch(DBusWatch* watch, void* data) {
    (void)data;
    door = watch;
    return TRUE;
}
static void remove_watch(DBusWatch* watch, void* data) { (void)watch, (void)data; }

void open_door(const struct load* load, const char* directory) {
    request = publish_body(load->bytes);
    if (strcmp(load->mode, "bus") == 0) {
        start_bus(directory);
        return;
    }
    char address[160];
    (void)snprintf(address, sizeof address, "unix:path=%s/socket", directory);
    server = dbus_server_listen(address, NULL);
    must(server != NULL, "dbus_server_listen");
    dbus_server_set_new_connection_function(server, take, NULL, NULL);
    must(dbus_server_set_watch_functions(server, add_watch, remove_watch, NULL, NULL, NULL) != 0,
         "dbus_server_set_watch_functions");
}

void meet(const struct load* load) {
    if (strcmp(load->mode, "bus") != 0) {
        while (connection == NULL) {
            (void)usleep(1000);
            (void)dbus_watch_handle(door, DBUS_WATCH_READABLE);
        }
        return;
    }
    connection = open_bus();
    destination = BUS_NAME;
    while (!dbus_bus_name_has_owner(connection, BUS_NAME, NULL))
        (void)usleep(1000); // until the plugin has taken its name
}

void ask(void) {
    DBusMessage* const call =
        dbus_message_new_method_call(destination, BUS_PATH, BUS_NAME, "Publish");
    const char* const text = request.bytes;
    (void)dbus_message_append_args(call, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    DBusMessage* const reply =
        dbus_connection_send_with_reply_and_block(connection, call, -1, NULL);
    must(reply != NULL, "dbus_connection_send_with_reply_and_block");
    dbus_message_unref(reply);
    dbus_message_unref(call);
}
