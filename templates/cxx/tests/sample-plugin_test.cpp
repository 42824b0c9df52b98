// Tests of the callables, which are called in this process: pelmtest.h has what they can be asked, and what
// they have asked of the daemon.
#include <pelmconf.hpp>
#include <pelmtest.h>

#include <cstdio>
#include <string>

void describe(pelmconf::plugin& plugin); // of sample-plugin.cpp

namespace {

int failures;

void check(const char* what, const std::string& expected, const std::string& got) {
    if (expected == got)
        return;
    (void)std::fprintf(stderr, "%s: expected \"%s\", got \"%s\"\n", what, expected.c_str(),
                       got.c_str());
    failures++;
}

// Each begins with an empty configuration.
void run(void (*test)()) {
    pelmconf::plugin plugin("sample-plugin");
    describe(plugin);
    (void)pelmtest_begin(plugin.table());
    check("the tables", "", pelmtest_text());
    test();
    pelmtest_end();
}

// [[each config]]
void setting_takes_a_value() {
    (void)pelmtest_set("/sample/setting", "two");
    check("a value", "ok", pelmtest_said());
}

void setting_refuses_blanks() {
    (void)pelmtest_set("/sample/setting", "two words");
    check("blanks", "error 22 (A value has no blanks.)", pelmtest_said());
    check("what stands there then", "", pelmtest_tree(PELMTEST_CURRENT, "/sample/setting"));
}

// [[end]]
// [[each status]]
void state_tells_of_no_changes() {
    (void)pelmtest_kick_off();
    (void)pelmtest_status("/sample/state", nullptr);
    check("at the start", "<state><changes>0</changes></state>", pelmtest_xml());
}

// [[end]]
// [[each operate]]
void reset_answers_the_count() {
    (void)pelmtest_operate("/sample/reset", "<count>5</count>");
    check("a count", "ok", pelmtest_said());
    (void)pelmtest_operate("/sample/reset", "<count>0</count>");
    check("the one before", "<was>5</was>", pelmtest_xml());
}

void reset_refuses_what_is_no_count() {
    (void)pelmtest_operate("/sample/reset", "<count>x</count>");
    check("no count", "error 22 (A count has one to nine digits.)", pelmtest_said());
    (void)pelmtest_operate("/sample/reset", nullptr);
    check("no input", "error 22 (A count has one to nine digits.)", pelmtest_said());
}

// [[end]]
} // namespace

int main() {
    // [[each config]]
    run(setting_takes_a_value);
    run(setting_refuses_blanks);
    // [[end]]
    // [[each status]]
    run(state_tells_of_no_changes);
    // [[end]]
    // [[each operate]]
    run(reset_answers_the_count);
    run(reset_refuses_what_is_no_count);
    // [[end]]
    return failures != 0;
}
