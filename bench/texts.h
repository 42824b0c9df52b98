// The messages that the round trips carry, built once before the clock runs.
#pragma once

#include <stddef.h>

enum { header_bytes = 12, pull_bytes = 4096 };

struct text {
    char* bytes;
    size_t used;
};

// Each returns a body of exactly so many bytes (an operation's: about as many) as malloc gave it.
struct text publish_body(size_t bytes);
struct text operate_body(size_t bytes);

// The answer to the request of that id. The data in it has pull_bytes when it is a pull's, and there
// is none when it is not.
struct text reply_body(const char* id, int pulled);

// Puts a body behind its header, and frees it.
struct text framed(struct text body);
