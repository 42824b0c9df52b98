/* A program of somebody else, who has the library only as installed. */
#include <conf_api.h>

int main(void) {
    xmlNode* node = xmlNewNode(NULL, BAD_CAST "outsider");
    int failed = node == NULL || econf_plugin_activate(ACTIVATE_WITH_NONE) == 0;
    xmlFreeNode(node);
    return failed;
}
