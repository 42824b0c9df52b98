#include "script/plugin_log.h"

#include "script/files.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace pelmsim {
namespace {

constexpr std::size_t most_read =
    std::size_t{16} * 1024 * 1024; // at once; the library keeps it below 2

std::string last_lines(const std::string& text, int count) {
    std::size_t begin = text.size();
    while (count-- > 0 && begin > 0)
        begin = text.find_last_of('\n', begin < 2 ? 0 : begin - 2) + 1;
    return text.substr(begin);
}

} // namespace

std::string plugin_log(int lines) {
    const std::string text =
        std::filesystem::exists(plugin_log_file) ? read_file(plugin_log_file) : "the log is empty";
    return lines < 0 ? text : last_lines(text, lines);
}

log_place end_of_plugin_log() {
    struct stat file {};
    if (stat(plugin_log_file, &file) != 0)
        return {};
    return {file.st_ino, static_cast<std::size_t>(file.st_size)};
}

std::optional<log_part> plugin_log_behind(const log_place& place) {
    const log_place now = end_of_plugin_log();
    const bool is_same = now.file == place.file && now.at >= place.at;
    const std::size_t first = is_same ? place.at : 0;
    const std::size_t begin = std::max(first, now.at - std::min(now.at, most_read));
    std::ifstream file(plugin_log_file, std::ios::binary);
    if (!file) // a plugin may delete it at any time
        return std::nullopt;
    std::string text(now.at - begin, '\0');
    file.seekg(static_cast<std::streamoff>(begin));
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    const log_place end{now.file, begin + text.size()};
    return log_part{std::move(text), end, begin > first || (!is_same && place.file != 0)};
}

} // namespace pelmsim
