#include "describe_process.h"

#include "journal/escaped.h"

#include <cerrno>
#include <csignal>
#include <fstream>

namespace pelmsim {
namespace {

bool lives(pid_t pid) { return kill(pid, 0) == 0 || errno == EPERM; }

} // namespace

std::string describe_process(pid_t pid) {
    std::string name = "gone";
    if (lives(pid)) {
        std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
        std::getline(file, name);
    }
    return std::to_string(pid) + " (" + escaped(name) + ")";
}

} // namespace pelmsim
