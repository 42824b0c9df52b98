// Tries the scenarios that are named, or all, at all points or at some.
#include "scenarios.h"

#include "support/profile.h"

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace torture {
namespace {

constexpr std::size_t few_bytes = 7; // less than a header

constexpr scenario scenarios[] = {
    {"plugin", plugin},
    {"plugin_quiet", plugin, false, few_bytes},
    {"copied_messages", copied_messages},
    {"refusing_daemon", refusing_daemon},
    {"large_messages", large_messages},
    {"older_plugin", older_plugin},
    {"older_plugin_quiet", older_plugin, false, few_bytes},
    {"local_plugin", local_plugin},
    {"agent", agent},
    {"endpoints", endpoints},
    {"table", table},
    {"containers", containers},
    {"log", log},
};

void say_nothing(void*, const char*, ...) {}

void prepare() {
    (void)std::signal(SIGPIPE, SIG_IGN);
    std::ofstream(conf::profile_path) << R"({"working-dir":"/var/tmp"})";
    xmlInitParser();
    xmlSetGenericErrorFunc(nullptr, say_nothing);
}

// In a process of its own, so that one that breaks down leaves the number of the point. @return whether all
// went well
bool try_apart(const scenario& one, selection chosen) {
    auto* const now = static_cast<std::size_t*>(mmap(
        nullptr, sizeof(std::size_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const pid_t child = fork();
    if (child == 0) {
        const std::size_t count = try_points(one, chosen, now);
        std::printf("%-20s %6zu points\n", one.name, count);
        std::exit(testing::UnitTest::GetInstance()->Passed() ? 0 : 1);
    }
    int status = -1;
    (void)waitpid(child, &status, 0);
    if (status != 0)
        std::fprintf(stderr, "torture: %s failed, the last point was %zu\n", one.name, *now);
    return status == 0;
}

struct options {
    std::vector<std::string> names;
    selection chosen;
    bool is_list = false;
};

[[noreturn]] void explain() {
    std::fputs("usage: torture [SCENARIO...] [--every N [--from K] | --write | --list]\n", stderr);
    std::exit(2);
}

options read(int count, char** words) {
    options given;
    for (int at = 1; at < count; ++at) {
        const std::string word = words[at];
        const bool has_number = at + 1 < count && std::isdigit(words[at + 1][0]) != 0;
        if (word == "--list")
            given.is_list = true;
        else if (word == "--every" && has_number)
            given.chosen.every = std::strtoul(words[++at], nullptr, 10);
        else if (word == "--from" && has_number)
            given.chosen.from = std::strtoul(words[++at], nullptr, 10);
        else if (word == "--write")
            given.chosen.is_to_write = true;
        else if (!word.starts_with("-"))
            given.names.push_back(word);
        else
            explain();
    }
    return given.chosen.every > 0 ? given : (explain(), given);
}

} // namespace
} // namespace torture

int main(int count, char** words) {
    using namespace torture;
    const options given = read(count, words);
    testing::InitGoogleTest(&count, words);
    prepare();
    std::size_t tried = 0;
    bool is_well = true;
    for (const scenario& each : scenarios) {
        if (!given.names.empty() && std::ranges::find(given.names, each.name) == given.names.end())
            continue;
        ++tried;
        if (given.is_list)
            std::puts(each.name);
        else
            is_well = try_apart(each, given.chosen) && is_well;
    }
    if (tried < given.names.size())
        explain();
    return is_well ? 0 : 1;
}
