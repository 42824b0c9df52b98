// The daemon's side of a connection that carries frames: the same bytes for every contestant, built
// beforehand and moved by blocking calls.
#define _GNU_SOURCE
#include "drive.h"
#include "texts.h"

#include "conf_def.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static int door = -1;
static int sock = -1;
static int asks_first;
static struct text request;
static struct text frame; // the last one read
static size_t frame_room;

static void write_all(struct text out) {
    for (size_t done = 0; done < out.used;) {
        const ssize_t count = write(sock, out.bytes + done, out.used - done);
        must(count > 0, "write");
        done += (size_t)count;
    }
}

// Reads as much as there is, since what is expected is one frame.
static void read_frame(void) {
    size_t wanted = header_bytes;
    for (frame.used = 0; frame.used < wanted;) {
        const ssize_t count = read(sock, frame.bytes + frame.used, frame_room - frame.used);
        must(count > 0, "read");
        frame.used += (size_t)count;
        if (frame.used >= header_bytes) {
            msg_head_t head;
            memcpy(&head, frame.bytes, sizeof head);
            wanted = sizeof head + head.length;
        }
    }
}

// Answers the request of the plugin that was just read.
static void answer(int pulled) {
    char id[16] = "";
    const char* const place = memmem(frame.bytes, frame.used, "<id>", 4);
    must(place != NULL, "finding an id");
    (void)sscanf(place, "<id>%15[0-9]", id);
    if (!pulled) {
        const struct text reply = framed(reply_body(id, 0));
        write_all(reply);
        free(reply.bytes);
        return;
    }
    static struct text ready; // a pull's answer, in which all ids have five digits
    if (ready.bytes == NULL)
        ready = framed(reply_body("00000", 1));
    char digits[16];
    (void)snprintf(digits, sizeof digits, "%05d", (int)strtol(id, NULL, 10));
    memcpy(ready.bytes + ready.used - strlen("00000</id></reply>"), digits, 5);
    write_all(ready);
}

void open_door(const struct load* load, const char* directory) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    (void)snprintf(address.sun_path, sizeof address.sun_path, "%.80s/socket", directory);
    door = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    must(bind(door, (struct sockaddr*)&address, sizeof address) == 0 && listen(door, 1) == 0,
         "bind");
    asks_first = load->pull;
    request = framed(load->operate ? operate_body(load->bytes) : publish_body(load->bytes));
    frame_room = request.used + (1 << 22); // registering many callbacks takes room
    frame.bytes = malloc(frame_room);
    must(frame.bytes != NULL, "malloc");
}

void meet(const struct load* load) {
    sock = accept4(door, NULL, NULL, SOCK_CLOEXEC);
    must(sock >= 0, "accept");
    for (int left = strncmp(load->mode, "plugin", 6) == 0 ? 2 : 0; left > 0; --left) {
        read_frame(); // "register", then "activate"
        answer(0);
    }
}

void ask(void) {
    write_all(request);
    read_frame();
    if (asks_first) {
        answer(1);
        read_frame();
    }
}
