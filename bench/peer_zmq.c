// ZeroMQ, REQ and REP over ipc.
#include "drive.h"
#include "texts.h"

#include <stdio.h>
#include <stdlib.h>
#include <zmq.h>

static void* asking;
static struct text request;
static char address[128];

void serve(const struct load* load, const char* directory) {
    void* const context = zmq_ctx_new();
    void* const sock = zmq_socket(context, ZMQ_REP);
    (void)snprintf(address, sizeof address, "ipc://%s/socket", directory);
    must(zmq_connect(sock, address) == 0, "zmq_connect");
    char* const room = malloc(load->bytes);
    must(room != NULL, "malloc");
    for (long served = 0; served < load->requests; ++served) {
        must(zmq_recv(sock, room, load->bytes, 0) == (int)load->bytes, "zmq_recv");
        must(zmq_send(sock, "", 0, 0) == 0, "zmq_send");
    }
    (void)zmq_close(sock);
    (void)zmq_ctx_term(context);
    free(room);
}

void open_door(const struct load* load, const char* directory) {
    asking = zmq_socket(zmq_ctx_new(), ZMQ_REQ);
    (void)snprintf(address, sizeof address, "ipc://%s/socket", directory);
    must(zmq_bind(asking, address) == 0, "zmq_bind");
    request = publish_body(load->bytes);
}

void meet(const struct load* load) { (void)load; }

void ask(void) {
    char nothing;
    must(zmq_send(asking, request.bytes, request.used, 0) == (int)request.used, "zmq_send");
    must(zmq_recv(asking, &nothing, sizeof nothing, 0) == 0, "zmq_recv");
}
