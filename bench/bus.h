// What both D-Bus libraries need: names, and a dbus-daemon of our own.
#pragma once

#define BUS_NAME "bench.plugin"
#define BUS_PATH "/plugin"

// Starts a daemon that listens at directory/bus and ends with this process; puts its address into
// DBUS_SESSION_BUS_ADDRESS, for children too.
void start_bus(const char* directory);
