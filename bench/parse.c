// Parses a frame of 4 KiB so many times, for counting instructions: PROGRAM COUNT
#include "texts.h"

#include "conf_buffer.h"
#include "conf_plugin.h"

#include <stdlib.h>

int main(int argc, char** argv) {
    const struct text frame = framed(reply_body("1", 1));
    conf_buffer_t* buffer = conf_buffer_create(1000);
    for (long left = argc == 2 ? strtol(argv[1], NULL, 10) : 0; left > 0; --left) {
        if (conf_buffer_append(&buffer, frame.bytes, (int)frame.used) < 0)
            return 1;
        xmlFreeNode(plugin_parse_message(&buffer));
    }
    conf_buffer_destroy(buffer);
    free(frame.bytes);
    return 0;
}
