// What nobody who keeps to the same protocol can do without, in a straight line and unchecked:
//   raw    the bytes alone, by blocking read and write
//   xml    and what libxml2 has to do with them
//   floor  and the transport: reads of 1024 bytes until there is no more, an epoll instance for each
//          synchronous operation, pages that come and go with what they hold, and wiping
#define _GNU_SOURCE
#include "drive.h"

#include "conf_def.h"

#include <errno.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

enum { page = 4096, piece = 1024, head_bytes = sizeof(msg_head_t) };

struct buffer {
    char* bytes;
    size_t used;
    size_t room;
};

static int sock;
static int is_floor; // or only raw bytes and XML, by blocking calls
static struct buffer in;
static struct buffer out;

static struct buffer make_buffer(void) {
    void* const bytes =
        mmap(NULL, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return (struct buffer){bytes, 0, page};
}

// Room for more bytes and a zero behind them, in the same steps as the library.
static void grow(struct buffer* buffer, size_t more) {
    enum { headroom = 0x20000 };
    size_t need = buffer->used + more + 1;
    if (need <= buffer->room)
        return;
    if (need >= headroom && more < headroom)
        need += headroom;
    need = need < headroom ? (size_t)headroom : (need + page - 1) / page * page;
    buffer->bytes = mremap(buffer->bytes, buffer->room, need, MREMAP_MAYMOVE);
    buffer->room = need;
}

static void append(struct buffer* buffer, const void* bytes, size_t count) {
    grow(buffer, count);
    memcpy(buffer->bytes + buffer->used, bytes, count);
    buffer->used += count;
}

// Wipes what was held and gives back all pages but the first.
static void consume(struct buffer* buffer) {
    explicit_bzero(buffer->bytes, buffer->used);
    buffer->used = 0;
    if (buffer->room > page)
        (void)munmap(buffer->bytes + page, buffer->room - page);
    buffer->room = page;
}

static size_t frame_bytes(void) {
    msg_head_t head = {0, 0, 0, 0};
    if (in.used >= head_bytes)
        memcpy(&head, in.bytes, sizeof head);
    return head_bytes + head.length;
}

// Whether a whole frame is there; otherwise there is nothing more to read, either.
static int read_frame(void) {
    while (in.used < head_bytes || in.used < frame_bytes()) {
        grow(&in, piece);
        const size_t room = is_floor ? (size_t)piece : in.room - in.used - 1;
        const ssize_t count = read(sock, in.bytes + in.used, room);
        if (count <= 0)
            return 0;
        in.used += (size_t)count;
    }
    return 1;
}

static void wipe(xmlNode* node) {
    for (; node != NULL; node = node->next) {
        if (node->type == XML_TEXT_NODE)
            explicit_bzero(node->content, strlen((char*)node->content));
        else
            wipe(node->children);
    }
}

static void free_tree(xmlNode* node) {
    if (is_floor)
        wipe(node);
    xmlFreeNode(node);
}

static xmlNode* parse_frame(void) {
    xmlDoc* const doc = xmlReadMemory(in.bytes + head_bytes, (int)(frame_bytes() - head_bytes),
                                      NULL, "utf-8", XML_PARSE_NOBLANKS);
    xmlNode* const root = xmlDocGetRootElement(doc);
    xmlNode* const copy = xmlCopyNode(root, 1);
    if (is_floor)
        wipe(root);
    xmlFreeDoc(doc);
    if (is_floor)
        consume(&in);
    in.used = 0; // one frame is under way at a time
    return copy;
}

static void write_out(void) {
    for (size_t done = 0; done < out.used;) {
        const ssize_t count = write(sock, out.bytes + done, out.used - done);
        done += count > 0 ? (size_t)count : 0;
    }
}

static void dump(xmlNode* root) {
    xmlBuffer* const text = xmlBufferCreate();
    (void)xmlNodeDump(text, NULL, root, 0, 0);
    const msg_head_t head = {CONF_MSG_MAGIC, (u32_t)xmlBufferLength(text), 0, 0};
    append(&out, &head, sizeof head);
    append(&out, xmlBufferContent(text), head.length);
    xmlBufferFree(text);
}

// Sends a message, which is freed, and waits for it to be written; and for the answer if one comes.
static void send_message(xmlNode* root, int is_answered) {
    dump(root);
    if (!is_floor) {
        write_out();
        if (is_answered)
            (void)read_frame();
    } else {
        const int epoll = epoll_create1(EPOLL_CLOEXEC);
        struct epoll_event event = {.events = EPOLLOUT | EPOLLRDHUP | EPOLLET};
        if (is_answered)
            event.events |= EPOLLIN;
        (void)epoll_ctl(epoll, EPOLL_CTL_ADD, sock, &event);
        for (size_t done = 0, ready = 0; done < out.used || (is_answered && !ready);) {
            (void)epoll_wait(epoll, &event, 1, 30000);
            if ((event.events & EPOLLOUT) != 0 && done < out.used) {
                const ssize_t count = write(sock, out.bytes + done, out.used - done);
                done += count > 0 ? (size_t)count : 0;
            }
            if ((event.events & EPOLLIN) != 0)
                ready = (size_t)read_frame();
        }
        (void)close(epoll);
        consume(&out);
    }
    out.used = 0;
    xmlFreeNode(root);
}

static xmlNode* child_of(xmlNode* parent, const char* name) {
    xmlNode* child = parent->children;
    while (xmlStrcmp(child->name, BAD_CAST name) != 0)
        child = child->next;
    return child;
}

static void pull(void) {
    xmlNode* const params = xmlNewNode(NULL, BAD_CAST "params");
    (void)xmlNewTextChild(params, NULL, BAD_CAST "path", BAD_CAST "/interfaces");
    xmlNode* const rpc = xmlNewNode(NULL, BAD_CAST "rpc");
    (void)xmlNewTextChild(rpc, NULL, BAD_CAST "method", BAD_CAST "pull");
    (void)xmlAddChild(rpc, params);
    (void)xmlNewTextChild(rpc, NULL, BAD_CAST "id", BAD_CAST "12345");
    send_message(rpc, 1);
    xmlNode* const reply = parse_frame();
    xmlNode* const data = child_of(child_of(reply, "result"), "data");
    xmlFreeNodeList(xmlCopyNodeList(data->children)); // as the callback does
    free_tree(reply);
}

static void answer(const struct load* load) {
    xmlNode* const rpc = parse_frame();
    xmlNode* const params = child_of(rpc, "params");
    if (load->pull)
        pull();
    xmlNode* const output =
        load->operate ? xmlCopyNodeList(child_of(params, "info")->children) : NULL;
    xmlNode* const result = xmlNewNode(NULL, BAD_CAST "result");
    if (output != NULL)
        (void)xmlAddChildList(result, output);
    xmlNode* const reply = xmlNewNode(NULL, BAD_CAST "reply");
    (void)xmlAddChild(reply, result);
    (void)xmlNewTextChild(reply, NULL, BAD_CAST "id", child_of(rpc, "id")->children->content);
    send_message(reply, 0);
    free_tree(rpc);
}

static void send_raw(const char* body) {
    const msg_head_t head = {CONF_MSG_MAGIC, (u32_t)strlen(body), 0, 0};
    append(&out, &head, sizeof head);
    append(&out, body, head.length);
    write_out();
    out.used = 0;
}

static void answer_raw(const struct load* load) {
    if (load->operate) {
        append(&out, in.bytes, in.used);
        write_out();
        out.used = 0;
    }
    in.used = 0;
    if (load->pull) {
        send_raw("<rpc><method>pull</method><params><path>/interfaces</path></params>"
                 "<id>12345</id></rpc>");
        (void)read_frame();
        in.used = 0;
    }
    if (!load->operate)
        send_raw("<reply><result/><id>1</id></reply>");
}

static void serve_floor(const struct load* load) {
    const int loop = epoll_create1(EPOLL_CLOEXEC);
    struct epoll_event event = {.events = EPOLLIN | EPOLLET};
    (void)epoll_ctl(loop, EPOLL_CTL_ADD, sock, &event);
    for (long served = 0; served < load->requests;) {
        (void)epoll_wait(loop, &event, 1, -1);
        for (; read_frame(); ++served)
            answer(load);
    }
}

void serve(const struct load* load, const char* directory) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    (void)snprintf(address.sun_path, sizeof address.sun_path, "%.80s/socket", directory);
    is_floor = strcmp(load->mode, "floor") == 0;
    sock = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (is_floor ? SOCK_NONBLOCK : 0), 0);
    must(connect(sock, (struct sockaddr*)&address, sizeof address) == 0, "connect");
    in = make_buffer();
    out = make_buffer();
    if (is_floor) {
        serve_floor(load);
        return;
    }
    grow(&in, 2 * load->bytes + 0x10000); // enough for all that comes, in one read if it can be
    for (long served = 0; served < load->requests && read_frame(); ++served) {
        if (strcmp(load->mode, "xml") == 0)
            answer(load);
        else
            answer_raw(load);
    }
}
