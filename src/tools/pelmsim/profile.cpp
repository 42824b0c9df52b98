#include "profile.h"

#include "model/problem.h"

#include <filesystem>
#include <fstream>

namespace pelmsim {

void write_profile(const std::string& directory) {
    std::string escaped;
    for (const char c : directory)
        escaped += (c == '"' || c == '\\' ? R"(\)" : "") + std::string(1, c);
    std::filesystem::create_directories(directory);
    std::filesystem::create_directories(std::filesystem::path(profile_path).parent_path());
    std::ofstream file(profile_path);
    file << R"({ "working-dir": ")" << escaped << R"(" })"
         << "\n"
         << std::flush;
    if (!file)
        throw problem(std::string("cannot write ") + profile_path);
}

} // namespace pelmsim
