/* Takes a frame from one end of the library to the other, and says what is not right. */
#include <conf_agent.h>
#include <conf_api.h>
#include <conf_plugin.h>

#include <stdio.h>
#include <string.h>

int main(void) {
    conf_buffer_t* frame = conf_buffer_create(1);
    int is_built = conf_agent_build_capability(&frame, 7) == 0;
    xmlNode* request = plugin_parse_message(&frame);
    int is_read = request != NULL && strcmp((const char*)request->name, "rpc") == 0;
    int is_taken = conf_buffer_length(frame) == 0;

    xmlFreeNode(request);
    conf_buffer_destroy(frame);
    if (is_built && is_read && is_taken)
        return 0;
    (void)fprintf(stderr, "exercise: built %d, read %d, taken %d\n", is_built, is_read, is_taken);
    return 1;
}
