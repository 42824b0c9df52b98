#include "script/files.h"

#include "model/problem.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace pelmsim {

std::string read_file(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    if (!file || std::filesystem::is_directory(name))
        throw problem("cannot read " + name + ": " + std::strerror(file ? EISDIR : errno));
    return {std::istreambuf_iterator<char>(file), {}};
}

tree read_tree(const std::string& name) {
    try {
        return tree::from_xml(read_file(name));
    } catch (const malformed& why) {
        throw problem(name + ":" + std::to_string(why.line) + ": " + why.reason);
    }
}

void write_file(const std::string& name, const std::string& text) {
    std::ofstream file(name);
    file << text << std::flush;
    if (!file)
        throw problem("Cannot write " + name + ".");
}

} // namespace pelmsim
