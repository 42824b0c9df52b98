// libnetconf2: an operation whose input is a string, over a UNIX socket. The two modules say no more
// than this operation needs.
#define _GNU_SOURCE
#include "drive.h"
#include "texts.h"

#include <libnetconf2/log.h>
#include <libnetconf2/messages_client.h>
#include <libnetconf2/messages_server.h>
#include <libnetconf2/session.h>
#include <libnetconf2/session_client.h>
#include <libnetconf2/session_server.h>
#include <libyang/libyang.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static const char base_module[] =
    "module ietf-netconf { namespace 'urn:ietf:params:xml:ns:netconf:base:1.0'; prefix nc;"
    " revision 2011-06-01; rpc get { input { anyxml filter; } output { anyxml data; } }"
    " rpc close-session; }";
static const char bench_module[] = "module bench { namespace 'urn:bench'; prefix b;"
                                   " rpc publish { input { leaf info { type string; } } } }";

static struct ly_ctx* context;
static struct nc_session* session;
static struct nc_rpc* rpc;
static int door = -1;
static long served;

static void prepare(void) {
    must(ly_ctx_new(NULL, 0, &context) == LY_SUCCESS, "ly_ctx_new");
    must(lys_parse_mem(context, base_module, LYS_IN_YANG, NULL) == LY_SUCCESS, "ietf-netconf");
    must(lys_parse_mem(context, bench_module, LYS_IN_YANG, NULL) == LY_SUCCESS, "bench");
}

static struct sockaddr_un socket_in(const char* directory) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    (void)snprintf(address.sun_path, sizeof address.sun_path, "%.80s/socket", directory);
    return address;
}

static struct nc_server_reply* on_rpc(struct lyd_node* call, struct nc_session* from) {
    (void)from;
    served += strcmp(LYD_NAME(call), "publish") == 0;
    return nc_server_reply_ok();
}

void serve(const struct load* load, const char* directory) {
    prepare();
    const struct sockaddr_un address = socket_in(directory);
    const int sock = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    must(connect(sock, (const struct sockaddr*)&address, sizeof address) == 0, "connect");
    must(nc_server_init(context) == 0, "nc_server_init");
    nc_set_global_rpc_clb(on_rpc);
    must(nc_accept_inout(sock, sock, "bench", &session) == NC_MSG_HELLO, "nc_accept_inout");
    struct nc_pollsession* const polled = nc_ps_new();
    must(nc_ps_add_session(polled, session) == 0, "nc_ps_add_session");
    while (served < load->requests)
        (void)nc_ps_poll(polled, 1000, NULL);
}

void open_door(const struct load* load, const char* directory) {
    const struct sockaddr_un address = socket_in(directory);
    door = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    must(bind(door, (const struct sockaddr*)&address, sizeof address) == 0 && listen(door, 1) == 0,
         "bind");
    static const char head[] = "<publish xmlns=\"urn:bench\"><info>";
    static const char tail[] = "</info></publish>";
    char* const text = calloc(1, load->bytes + 1);
    must(text != NULL, "calloc");
    memset(text, 'x', load->bytes);
    memcpy(text, head, sizeof head - 1);
    memcpy(text + load->bytes - (sizeof tail - 1), tail, sizeof tail - 1);
    rpc = nc_rpc_act_generic_xml(text, NC_PARAMTYPE_DUP_AND_FREE);
    must(rpc != NULL, "nc_rpc_act_generic_xml");
    free(text);
}

void meet(const struct load* load) {
    (void)load;
    prepare();
    nc_client_init();
    const int sock = accept4(door, NULL, NULL, SOCK_CLOEXEC | SOCK_NONBLOCK);
    session = nc_connect_inout(sock, sock, context);
    must(session != NULL, "nc_connect_inout");
}

void ask(void) {
    uint64_t id = 0;
    struct lyd_node* envelope = NULL;
    struct lyd_node* output = NULL;
    must(nc_send_rpc(session, rpc, 10000, &id) == NC_MSG_RPC, "nc_send_rpc");
    must(nc_recv_reply(session, rpc, id, 10000, &envelope, &output) == NC_MSG_REPLY,
         "nc_recv_reply");
    lyd_free_all(envelope);
    lyd_free_all(output);
}
