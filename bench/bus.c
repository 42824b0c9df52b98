#define _GNU_SOURCE
#include "bus.h"
#include "drive.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <unistd.h>

void start_bus(const char* directory) {
    char listen_at[160];
    char config[160];
    (void)snprintf(listen_at, sizeof listen_at, "unix:path=%s/bus", directory);
    (void)snprintf(config, sizeof config, "--config-file=%s/bus.conf", directory);
    FILE* const file = fopen("bus.conf", "we");
    must(file != NULL, "bus.conf");
    (void)fprintf(file,
                  "<busconfig><type>session</type><listen>%s</listen><auth>EXTERNAL</auth>"
                  "<policy context=\"default\"><allow send_destination=\"*\"/><allow own=\"*\"/>"
                  "<allow receive_sender=\"*\"/></policy></busconfig>",
                  listen_at);
    (void)fclose(file);
    int ready[2];
    must(pipe(ready) == 0 && setenv("DBUS_SESSION_BUS_ADDRESS", listen_at, 1) == 0, "pipe");
    const pid_t child = fork();
    must(child >= 0, "fork");
    if (child == 0) {
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        (void)dup2(ready[1], STDOUT_FILENO);
        if (freopen("/dev/null", "w", stderr) == NULL) // it may not raise its limits, and says so
            _exit(127);
        (void)execlp("dbus-daemon", "dbus-daemon", config, "--nofork", "--print-address",
                     (char*)NULL);
        _exit(127);
    }
    (void)close(ready[1]);
    char address[256];
    must(read(ready[0], address, sizeof address) > 0, "dbus-daemon");
}
