// What sample-plugin does: a callable for each path that it serves. main.cpp starts it, and
// tests/sample-plugin_test.cpp has the callables called.
#include <pelmconf.hpp>

#include <cerrno>
#include <cstdio>
#include <string>
#include <utility>

void describe(pelmconf::plugin& plugin); // for main.cpp and the tests

namespace {

long changes; // taken so far; your plugin's state goes here

// [[each config]]
// The daemon says where something has changed; what stood and what stands there is read from it.
void setting_changed(const pelmconf::change& change) {
    const std::string before = change.before().text().value_or("none");
    const std::string after = change.after().text().value_or("none");
    if (after.find(' ') != std::string::npos) // refuses the change: the daemon takes it back
        throw pelmconf::error(EINVAL, "A value has no blanks.");
    std::printf("%s: %s -> %s%s\n", change.path, before.c_str(), after.c_str(),
                change.rolled_back() ? " (taken back)" : "");
    changes++;
}

// [[end]]
// [[each status]]
pelmconf::tree state_status() { return pelmconf::tree("state").add("changes", changes); }

// [[end]]
// [[each operate]]
// Its input is the number to count from, as <count>0</count>; it answers how many there were.
pelmconf::tree reset_operation(const pelmconf::operation& operation) {
    const std::string given = operation.input.text().value_or("");
    if (given.empty() || given.size() > 9 ||
        given.find_first_not_of("0123456789") != std::string::npos)
        throw pelmconf::error(EINVAL, "A count has one to nine digits.");
    return pelmconf::tree("was", std::exchange(changes, std::stol(given)));
}

// [[end]]
} // namespace

// What stands at which path. The number is the priority: smaller ones are told first.
void describe(pelmconf::plugin& plugin) {
    // [[each config]]
    plugin.on_change("/sample/setting", 10, setting_changed);
    // [[end]]
    // [[each status]]
    plugin.on_status("/sample/state", state_status);
    // [[end]]
    // [[each operate]]
    plugin.on_operation("/sample/reset", reset_operation);
    // [[end]]
    plugin.on_kick_off([] { changes = 0; }); // the daemon asks for a fresh start
}
