// stress soak CHANGES LIVES | hangups EVERY [FIRST] | hostile | threads ROUNDS | table KILLS
#include "scenarios.h"

#include "support/profile.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <libxml/parser.h>
#include <string>

namespace {

void say_nothing(void*, const char*, ...) {}

int usage() {
    (void)std::fputs("usage: stress soak CHANGES LIVES | hangups EVERY [FIRST] | hostile |\n"
                     "       threads ROUNDS | table KILLS\n",
                     stderr);
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    const long first = argc > 2 ? std::atol(argv[2]) : 0,
               second = argc > 3 ? std::atol(argv[3]) : 0;
    (void)std::signal(SIGPIPE, SIG_IGN);
    std::ofstream(conf::profile_path) << R"({"working-dir":"/var/tmp"})";
    xmlInitParser();
    xmlSetGenericErrorFunc(nullptr, say_nothing); // what hostile bodies are about is no news
    if (what == "soak" && argc == 4)
        stress::soak(first, second);
    else if (what == "hangups" && argc >= 3 && first > 0)
        stress::hangups(first, second);
    else if (what == "hostile" && argc == 2)
        stress::hostile();
    else if (what == "threads" && argc == 3)
        stress::threads(first);
    else if (what == "table" && argc == 3)
        stress::table(first);
    else
        return usage();
    return 0;
}
