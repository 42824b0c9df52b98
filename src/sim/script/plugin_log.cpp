#include "script/plugin_log.h"

#include "model/problem.h"
#include "script/files.h"

#include <filesystem>
#include <sys/stat.h>

namespace pelmsim {
namespace {

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
    const log_place end = end_of_plugin_log();
    std::string text;
    try {
        text = read_file(plugin_log_file);
    } catch (const problem&) { // a plugin may delete it at any time
        return std::nullopt;
    }
    const bool is_same = end.file == place.file && text.size() >= place.at;
    return log_part{is_same ? text.substr(place.at) : text, !is_same && place.file != 0};
}

} // namespace pelmsim
