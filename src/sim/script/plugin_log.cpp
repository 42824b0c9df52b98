#include "script/plugin_log.h"

#include "script/files.h"

#include <filesystem>

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

} // namespace pelmsim
