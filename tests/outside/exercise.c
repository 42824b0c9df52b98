/* Goes through the library as far as it reaches without a daemon, and says what is not right. */
#include <conf_agent.h>
#include <conf_api.h>
#include <conf_plugin.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures;

static void check(int holds, const char* what) {
    if (holds)
        return;
    (void)fprintf(stderr, "exercise: %s\n", what);
    failures++;
}

static void try_paths(void) {
    char* path = plugin_path_schema2std("/net:net/net:interface[name=\"eth0\"]");

    check(path != NULL && strcmp(path, "/net:net/interface") == 0, "a path keeps its keys");
    free(path);
}

static void try_frames(void) {
    conf_buffer_t* frame = conf_buffer_create(1);

    check(conf_agent_build_capability(&frame, 7) == 0, "no frame can be built");
    xmlNode* request = plugin_parse_message(&frame);
    check(request != NULL && xmlStrEqual(request->name, BAD_CAST "rpc"), "a frame is unreadable");
    check(conf_buffer_length(frame) == 0, "a frame stays in the buffer");
    xmlFreeNode(request);
    conf_buffer_destroy(frame);
}

static void try_messages(void) {
    const char* method = NULL;
    xmlNode* params = xmlNewNode(NULL, BAD_CAST "params");
    xmlNode* request = plugin_build_rpc_message("kickoff", params, 7);

    check(plugin_get_msgid(request) == 7, "a request has not its id");
    check(plugin_parse_rpc(request, &method, &params) == 0, "a request cannot be read");
    check(method != NULL && strcmp(method, "kickoff") == 0, "a request has not its method");
    xmlFreeNode(request);
}

int main(void) {
    try_paths();
    try_frames();
    try_messages();
    return failures != 0;
}
