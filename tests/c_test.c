/* The ground floor as a C program uses it: built as C99, linked by the C driver with the shared
 * library, and so with nothing of C++. */
#include "conf_buffer.h"
#include "conf_debug.h"
#include "conf_dlq.h"
#include "conf_hash.h"
#include "conf_misc.h"
#include "conf_vec.h"

#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures;

static void check(int holds, int line, const char* condition) {
    if (holds)
        return;
    fprintf(stderr, "c_test.c:%d: does not hold: %s\n", line, condition);
    ++failures;
}
#define CHECK(condition) check((condition), __LINE__, #condition)

static void use_buffer(void) {
    char article[] = "a ";
    char noun[] = "plugin";
    conf_buffer_t* buffer = conf_buffer_create(16);
    CHECK(buffer != NULL);
    CHECK(conf_buffer_append(&buffer, noun, 6) == 0);
    CHECK(conf_buffer_insert(&buffer, 0, article, 2) == 0);
    CHECK(conf_buffer_length(buffer) == 8);
    CHECK(strcmp(conf_buffer_data(buffer), "a plugin") == 0);
    conf_buffer_destroy(buffer);
}

struct job {
    conf_dlq_node_t link; /* first, so that a link is a job */
    int number;
};

static void use_queue(void) {
    conf_dlq_list_t queue;
    conf_dlq_init(&queue);
    for (int number = 1; number <= 3; ++number) {
        struct job* job = malloc(sizeof *job);
        job->number = number;
        CHECK(conf_dlq_append(&queue, &job->link) == 0);
    }
    int sum = 0;
    for (conf_dlq_node_t* node = conf_dlq_head(&queue); node; node = conf_dlq_next(&queue, node))
        sum = 10 * sum + ((struct job*)node)->number;
    CHECK(sum == 123);
    conf_dlq_free(&queue, free);
    CHECK(queue.num == 0);
}

static void use_hash_table(void) {
    char key[] = "port";
    u32_t port = 830;
    conf_hash_tbl_t* table = conf_hash_create(8);
    CHECK(table != NULL);
    CHECK(conf_hash_add(table, key, &port, sizeof port) == 0);
    const void* stored = conf_hash_get(table, key);
    CHECK(stored != NULL && memcmp(stored, &port, sizeof port) == 0);
    conf_hash_del(table, key);
    CHECK(conf_hash_get(table, key) == NULL);
    conf_hash_destroy(table);
}

static void use_vector(void) {
    int one = 1;
    conf_vec_t* vector = conf_vector_create(1);
    CHECK(conf_vector_add(&vector, &one) == 0);
    CHECK(conf_vector_add(&vector, &failures) == 1);
    CHECK(conf_vector_get(vector, 0) == &one);
    CHECK(conf_vector_remove(vector, 0) == 0);
    CHECK(conf_vector_size(vector) == 2);
    conf_vector_destroy(vector, NULL);
}

static void use_helpers(void) {
    char digits[12];
    CHECK(strcmp(conf_itoa(-830, digits, sizeof digits), "-830") == 0);
    char* stripped = conf_strip(" \tname\n");
    CHECK(stripped != NULL && strcmp(stripped, "name") == 0);
    free(stripped);
    bool_t answer = true;
    CHECK(sizeof answer == 4 && answer != false);
    CHECK(strcmp(g_debug_desc[DBG_ERROR], "ERROR") == 0);
}

int main(void) {
    use_buffer();
    use_queue();
    use_hash_table();
    use_vector();
    use_helpers();
    return failures != 0;
}
