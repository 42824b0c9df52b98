/* What a process has that links libc and libxml2, and has read a document, but not the library. */
#include <libxml/parser.h>
#include <unistd.h>

int main(void) {
    static const char text[] = "<rpc><method>register</method></rpc>";
    xmlFreeDoc(xmlReadMemory(text, sizeof text - 1, NULL, NULL, 0));
    (void)!write(STDOUT_FILENO, "ready\n", 6);
    pause();
    return 0;
}
