/*
 * Tests of the callbacks, which are called in this process: pelmtest.h has what they can be asked, and
 * what they have asked of the daemon.
 */
#include <pelmtest.h>

#include <stdio.h>
#include <string.h>

extern conf_plugin_info_t callbacks; /* of sample-plugin.c */

static int failures;

static void check(const char* what, const char* expected, const char* got) {
    if (strcmp(expected, got) == 0)
        return;
    (void)fprintf(stderr, "%s: expected \"%s\", got \"%s\"\n", what, expected, got);
    failures++;
}

/* Each begins with an empty configuration. */
static void run(void (*test)(void)) {
    (void)pelmtest_begin_legacy(&callbacks);
    check("the tables", "", pelmtest_text());
    test();
}

/* [[each config]] */
static void setting_takes_a_value(void) {
    (void)pelmtest_set("/sample/setting", "two");
    check("a value", "ok", pelmtest_said());
}

static void setting_refuses_blanks(void) {
    (void)pelmtest_set("/sample/setting", "two words");
    check("blanks", "error 22 (A value has no blanks.)", pelmtest_said());
    check("what stands there then", "", pelmtest_tree(PELMTEST_CURRENT, "/sample/setting"));
}

/* [[end]] */
/* [[each status]] */
static void state_tells_of_no_changes(void) {
    (void)pelmtest_kick_off();
    (void)pelmtest_status("/sample/state", NULL);
    check("at the start", "<state><changes>0</changes></state>", pelmtest_xml());
}

/* [[end]] */
/* [[each operate]] */
static void reset_answers_the_count(void) {
    (void)pelmtest_operate("/sample/reset", "<count>5</count>");
    check("a count", "ok", pelmtest_said());
    (void)pelmtest_operate("/sample/reset", "<count>0</count>");
    check("the one before", "<was>5</was>", pelmtest_xml());
}

static void reset_refuses_what_is_no_count(void) {
    (void)pelmtest_operate("/sample/reset", "<count>x</count>");
    check("no count", "error 22 (A count has one to nine digits.)", pelmtest_said());
    (void)pelmtest_operate("/sample/reset", NULL);
    check("no input", "error 22 (A count has one to nine digits.)", pelmtest_said());
}

/* [[end]] */
int main(void) {
    /* [[each config]] */
    run(setting_takes_a_value);
    run(setting_refuses_blanks);
    /* [[end]] */
    /* [[each status]] */
    run(state_tells_of_no_changes);
    /* [[end]] */
    /* [[each operate]] */
    run(reset_answers_the_count);
    run(reset_refuses_what_is_no_count);
    /* [[end]] */
    pelmtest_end();
    return failures != 0;
}
