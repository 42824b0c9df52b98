#include "texts.h"

#include "conf_def.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void add(struct text* text, const char* more) {
    const size_t length = strlen(more);
    text->bytes = realloc(text->bytes, text->used + length + 1);
    if (text->bytes == NULL)
        abort();
    memcpy(text->bytes + text->used, more, length + 1);
    text->used += length;
}

// Fills up with letters, so that tail ends at the wanted size.
static void pad(struct text* text, size_t bytes, const char* tail) {
    const size_t end = bytes - strlen(tail);
    text->bytes = realloc(text->bytes, bytes + 1);
    if (text->bytes == NULL || text->used > end)
        abort();
    memset(text->bytes + text->used, 'x', end - text->used);
    text->used = end;
    add(text, tail);
}

struct text publish_body(size_t bytes) {
    struct text body = {NULL, 0};
    add(&body, "<rpc><method>publish</method><params><type>config</type>"
               "<session-id>7</session-id><callback>1</callback><info><oper-type>4</oper-type>"
               "<more-flag>0</more-flag><priority>100</priority>"
               "<path>/interfaces/interface[name=\"");
    pad(&body, bytes, "\"]</path></info></params><id>1</id></rpc>");
    return body;
}

struct text operate_body(size_t bytes) {
    enum { item_bytes = 256 };
    struct text item = {NULL, 0};
    add(&item, "<item>");
    pad(&item, item_bytes, "</item>");
    const size_t items = bytes / item_bytes;
    struct text body = {NULL, 0};
    add(&body, "<rpc><method>publish</method><params><type>operate</type>"
               "<session-id>7</session-id><callback>2</callback><info>");
    const char* const tail = "</info></params><id>1</id></rpc>";
    body.bytes = realloc(body.bytes, body.used + items * item_bytes + strlen(tail) + 1);
    if (body.bytes == NULL)
        abort();
    for (size_t done = 0; done < items; ++done, body.used += item_bytes)
        memcpy(body.bytes + body.used, item.bytes, item_bytes);
    free(item.bytes);
    add(&body, tail);
    return body;
}

struct text reply_body(const char* id, int pulled) {
    struct text body = {NULL, 0};
    add(&body, "<reply><result>");
    if (pulled) {
        add(&body, "<data>");
        for (int done = 0; done < pull_bytes / 64; ++done)
            add(&body, "<interface><name>ge-0/0/17</name><mtu>1500xxx</mtu></interface>\n");
        add(&body, "</data>");
    }
    add(&body, "</result><id>");
    add(&body, id);
    add(&body, "</id></reply>");
    return body;
}

struct text framed(struct text body) {
    const msg_head_t head = {CONF_MSG_MAGIC, (u32_t)body.used, 0, 0};
    struct text frame = {malloc(sizeof head + body.used), sizeof head + body.used};
    if (frame.bytes == NULL)
        abort();
    memcpy(frame.bytes, &head, sizeof head);
    memcpy(frame.bytes + sizeof head, body.bytes, body.used);
    free(body.bytes);
    return frame;
}
