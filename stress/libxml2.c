/*
 * What libxml2 does by itself, and no caller of it can help: the figures that docs/reliability.md has.
 */
#include <libxml/parser.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static long failing = -1; /* which of the allocations to come, none below 0 */
static long uses, blocks;

static int fails(void) { return failing >= 0 && uses++ == failing; }

static void* allocate(size_t size) {
    void* block = fails() ? NULL : malloc(size);
    blocks += block != NULL;
    return block;
}

static void* reallocate(void* block, size_t size) {
    void* moved = fails() ? NULL : realloc(block, size);
    blocks += block == NULL && moved != NULL;
    return moved;
}

static void give_back(void* block) {
    blocks -= block != NULL;
    free(block);
}

static char* duplicate(const char* text) {
    char* copy = allocate(strlen(text) + 1);
    return copy == NULL ? NULL : strcpy(copy, text);
}

static void say_nothing(void* context, const char* format, ...) { (void)context, (void)format; }

/* At each point a copy is given up; what it has lost is counted. */
static void copy_without_memory(void) {
    static const char text[] =
        "<rpc><method>pull</method><params><path a='1'>/a</path></params></rpc>";
    xmlDoc* document = xmlReadMemory(text, sizeof text - 1, NULL, "utf-8", 0);
    int leaks = 0;
    long points = 0;

    for (;; ++points) {
        const long before = blocks;
        failing = points;
        uses = 0;
        xmlNode* copy = xmlCopyNode(xmlDocGetRootElement(document), 1);
        const int is_over = uses <= failing;
        failing = -1;
        xmlFreeNode(copy);
        xmlResetLastError();
        if (is_over)
            break;
        leaks += blocks != before;
    }
    printf("xmlCopyNode() without memory: %d of %ld points leave blocks behind\n", leaks, points);
    xmlFreeDoc(document);
}

/* @return how many points there are; at each, in a process of its own, the parser is given up */
static long parse_at_each_point(const char* text, int* crashes) {
    long points = 0;

    for (int status = 1; status != 0; ++points) {
        const pid_t child = fork();
        if (child == 0) {
            failing = points;
            xmlFreeDoc(xmlReadMemory(text, (int)strlen(text), NULL, "utf-8", XML_PARSE_NOBLANKS));
            _exit(uses > failing);
        }
        (void)waitpid(child, &status, 0);
        *crashes += WIFSIGNALED(status);
    }
    return points - 1;
}

static void parse_without_memory(void) {
    char text[300];
    int crashes = 0;
    long points = 0;

    for (int length = 80; length <= 280; length += 50) {
        (void)snprintf(text, sizeof text, "<a>%0*d</a>", length, 0);
        points += parse_at_each_point(text, &crashes);
    }
    printf("xmlReadMemory() without memory: %d of %ld points end the process\n", crashes, points);
}

static double seconds_for(int attributes) {
    char* text = malloc((size_t)attributes * 12 + 8);
    char* end = text + sprintf(text, "<a");
    struct timespec begin, now;

    for (int i = 0; i < attributes; ++i)
        end += sprintf(end, " a%d=''", i);
    end += sprintf(end, "/>");
    (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &begin);
    xmlFreeDoc(xmlReadMemory(text, (int)(end - text), NULL, NULL, XML_PARSE_NOBLANKS));
    (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    free(text);
    return (double)(now.tv_sec - begin.tv_sec) + (double)(now.tv_nsec - begin.tv_nsec) / 1e9;
}

static void parse_attributes(void) {
    for (int attributes = 1000; attributes <= 16000; attributes *= 4)
        printf("an element with %5d attributes: %.3f s\n", attributes, seconds_for(attributes));
}

int main(void) {
    xmlMemSetup(give_back, allocate, reallocate, duplicate);
    xmlInitParser();
    xmlSetGenericErrorFunc(NULL, say_nothing);
    printf("libxml2 %s\n", LIBXML_DOTTED_VERSION);
    copy_without_memory();
    parse_without_memory();
    parse_attributes();
    return 0;
}
