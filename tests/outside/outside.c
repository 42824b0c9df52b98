/* A program of somebody else, who has the library only as installed. */
#include <conf_api.h>
#include <conf_buffer.h>

#include <string.h>

int main(void) {
    char article[] = "an ";
    conf_buffer_t* buffer = conf_buffer_create(16);
    xmlNode* node = xmlNewNode(NULL, BAD_CAST "outsider");
    int failed = conf_buffer_append(&buffer, article, 3) != 0 ||
                 conf_buffer_append(&buffer, (void*)node->name, 8) != 0 ||
                 strcmp(buffer->buf, "an outsider") != 0 || econf_plugin_activate(0) == 0;
    xmlFreeNode(node);
    conf_buffer_destroy(buffer);
    return failed;
}
