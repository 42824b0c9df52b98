/*
 * Tests of plugin.c's callbacks in plain C, in one process:
 *   cc -Dmain=plugin_main -c plugin.c
 *   cc -o plugin_test plugin_test.c plugin.o $(pkg-config --cflags --libs pelmtest pelmconf)
 */
#include <pelmtest.h>

#include <stdio.h>
#include <string.h>

extern econf_plugin_subpub_info_t interfaces; /* of plugin.c */

static const char eth0[] = "/interfaces/interface[name=\"eth0\"]";
static int failures;

static void check(const char* what, const char* expected, const char* got) {
    if (strcmp(expected, got) == 0)
        return;
    (void)fprintf(stderr, "%s: expected \"%s\", got \"%s\"\n", what, expected, got);
    failures++;
}

static void refuses_a_small_mtu(void) {
    (void)pelmtest_begin(&interfaces);
    (void)pelmtest_set(eth0, "<mtu>60</mtu>");
    check("a small MTU", "error 22 (The MTU must be 68 at least.)", pelmtest_said());
    check("what stands there then", "", pelmtest_tree(PELMTEST_CURRENT, eth0));
}

static void takes_back_what_another_callback_refuses(void) {
    (void)pelmtest_begin(&interfaces);
    (void)pelmtest_given(eth0, "<mtu>1500</mtu>");
    (void)pelmtest_set(eth0, "<mtu>1400</mtu><address>192.0.2.300</address>");
    check("a wrong address", "error 22 (That is no address.)", pelmtest_said());
    check("the MTU that came with it", "/interfaces/interface[name=\"eth0\"] mod|rollback: ok",
          pelmtest_seen(PELMTEST_TOLD, 2));
}

int main(void) {
    refuses_a_small_mtu();
    takes_back_what_another_callback_refuses();
    pelmtest_end();
    return failures != 0;
}
