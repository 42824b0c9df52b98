// What nobody who keeps to the same protocol can do without, in a straight line and unchecked:
//   raw      the bytes alone, by blocking read and write
//   xml      and what libxml2 has to do with them when it is called as one would: each message is parsed
//            and its tree copied, since that of a document cannot be used without it
//   copying  and the transport: reads of 1024 bytes until there is no more, an epoll instance for each
//            synchronous operation, pages that come and go with what they hold, and wiping
//   floor    the same with messages that are parsed where they stand and trees that are not copied; and
//            what a change says is read
#define _GNU_SOURCE
#include "drive.h"

#include "conf_def.h"

#include <errno.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

enum { page = 4096, piece = 1024, head_bytes = sizeof(msg_head_t) };

struct buffer {
    char* bytes;
    size_t used;
    size_t room;
};

static int sock;
static int has_transport; // or blocking calls
static int is_copying;    // what was parsed
static xmlParserCtxt* parser;
static volatile long taken; // what a change says
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
        const size_t room = has_transport ? (size_t)piece : in.room - in.used - 1;
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
    if (has_transport)
        wipe(node);
    xmlFreeNode(node);
}

static xmlNode* parse_copy(const char* body, size_t bytes) {
    xmlDoc* const doc = xmlReadMemory(body, (int)bytes, NULL, "utf-8", XML_PARSE_NOBLANKS);
    xmlNode* const root = xmlDocGetRootElement(doc);
    xmlNode* const copy = xmlCopyNode(root, 1);
    if (has_transport)
        wipe(root);
    xmlFreeDoc(doc);
    return copy;
}

// The byte behind is zero.
static xmlNode* parse_in_place(const char* body, size_t bytes) {
#if LIBXML_VERSION < 21400
    (void)bytes;
    (void)inputPush(parser, xmlNewStringInputStream(parser, BAD_CAST body));
    (void)xmlParseDocument(parser);
    xmlDoc* const doc = parser->myDoc;
    parser->myDoc = NULL;
#else
    xmlDoc* const doc = xmlCtxtParseDocument(
        parser, xmlNewInputFromMemory(NULL, body, bytes,
                                      XML_INPUT_BUF_STATIC | XML_INPUT_BUF_ZERO_TERMINATED));
#endif
    xmlNode* const root = xmlDocGetRootElement(doc);
    xmlUnlinkNode(root);
    xmlSetTreeDoc(root, NULL);
    xmlFreeDoc(doc);
    xmlCtxtReset(parser);
    return root;
}

static xmlNode* parse_frame(void) {
    const char* const body = in.bytes + head_bytes;
    const size_t bytes = frame_bytes() - head_bytes;
    xmlNode* const root = is_copying ? parse_copy(body, bytes) : parse_in_place(body, bytes);
    if (has_transport)
        consume(&in);
    in.used = 0; // one frame is under way at a time
    return root;
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
    if (!has_transport) {
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
    xmlNode* const pulled = is_copying ? xmlCopyNodeList(data->children) : data->children;
    if (!is_copying)
        data->children = data->last = NULL;
    xmlFreeNodeList(pulled); // as the callback does
    free_tree(reply);
}

static long number_in(xmlNode* parent, const char* name) {
    return strtol((const char*)child_of(parent, name)->children->content, NULL, 10);
}

// What a change says, as a callback takes it: numbers, and a path without quotes. The callback is timed,
// and may have made a child process that returns in its place.
static void take_change(xmlNode* params) {
    struct timeval now;
    xmlNode* const info = child_of(params, "info");
    char* const path = strdup((const char*)child_of(info, "path")->children->content);
    char* end = path;
    for (const char* at = path; *at != '\0'; ++at)
        if (*at != '"')
            *end++ = *at;
    *end = '\0';
    taken = number_in(params, "callback") + number_in(params, "session-id") +
            number_in(info, "oper-type") + number_in(info, "more-flag") +
            number_in(info, "priority");
    (void)gettimeofday(&now, NULL);
    taken += path[0];
    (void)gettimeofday(&now, NULL);
    taken += getpid();
    free(path);
}

static void answer(const struct load* load) {
    xmlNode* const rpc = parse_frame();
    xmlNode* const params = child_of(rpc, "params");
    if (!is_copying && !load->operate)
        take_change(params);
    if (load->pull)
        pull();
    xmlNode* const output =
        load->hands_back ? xmlCopyNodeList(child_of(params, "info")->children) : NULL;
    xmlNode* const result = xmlNewNode(NULL, BAD_CAST "result");
    if (output != NULL)
        (void)xmlAddChildList(result, output);
    else if (load->operate)
        (void)xmlNewChild(result, NULL, BAD_CAST "ok", NULL);
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
    if (load->hands_back) {
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
    if (!load->hands_back)
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
    is_copying = strcmp(load->mode, "floor") != 0;
    has_transport = !is_copying || strcmp(load->mode, "copying") == 0;
    parser = xmlNewParserCtxt();
    (void)xmlCtxtUseOptions(parser, XML_PARSE_NOBLANKS | XML_PARSE_NODICT);
    sock = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (has_transport ? SOCK_NONBLOCK : 0), 0);
    must(connect(sock, (struct sockaddr*)&address, sizeof address) == 0, "connect");
    in = make_buffer();
    out = make_buffer();
    if (has_transport) {
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
