// pelmworld: runs one command in a private world.
#include "world.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

constexpr int usage_error = 2;
constexpr int cannot_start = 126;

} // namespace

int main(int argc, char** argv) {
    const bool in_place = argc > 1 && std::strcmp(argv[1], "--in-place") == 0;
    char** const command = argv + (in_place ? 3 : 2);
    if (command >= argv + argc || std::strcmp(command[-1], "--") != 0) {
        (void)std::fputs("usage: pelmworld [--in-place] -- COMMAND [ARGUMENT...]\n"
                         "Runs COMMAND as root of a private world with an empty /mnt, /var/tmp and "
                         "/var/log\nand System V IPC of its own. Where namespaces are refused to "
                         "root, containers and\n--in-place let it work in the machine's own "
                         "places, one run at a time.\n",
                         stderr);
        return usage_error;
    }
    if (const std::string problem = pelm::enter_private_world(in_place); !problem.empty()) {
        (void)std::fprintf(stderr, "pelmworld: %s\n", problem.c_str());
        return cannot_start;
    }
    execvp(command[0], command);
    (void)std::fprintf(
        stderr, "pelmworld: cannot run %s: %s (/mnt, /var/tmp and /var/log are empty in here)\n",
        command[0], std::strerror(errno));
    return cannot_start;
}
