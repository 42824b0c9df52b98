#include "script/files.h"

#include "model/problem.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace pelmsim {

std::string read_file(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    if (!file || std::filesystem::is_directory(name))
        throw problem("cannot read " + name + ": " + std::strerror(file ? EISDIR : errno));
    std::string text;
    std::array<char, 65536> piece;
    while (file.read(piece.data(), piece.size()) || file.gcount() > 0)
        text.append(piece.data(), static_cast<std::size_t>(file.gcount()));
    if (file.bad())
        throw problem("cannot read " + name + ": " + std::strerror(errno));
    return text;
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
