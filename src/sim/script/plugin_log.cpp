#include "script/plugin_log.h"

#include "model/owners.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

// A plugin may put anything in its place: to open a FIFO, say, would wait for somebody to write.
unique_fd open_log(struct stat* state) {
    unique_fd log(open(plugin_log_file, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!log || fstat(log.get(), state) != 0 || !S_ISREG(state->st_mode))
        return unique_fd();
    return log;
}

log_place end_of(const struct stat& log) {
    return {log.st_ino, static_cast<std::size_t>(log.st_size)};
}

// From one place to another, as far as it is there; at most the last of it.
std::string read_between(const unique_fd& log, std::size_t* begin, std::size_t end) {
    *begin = std::max(*begin, end - std::min(end, most_read));
    std::string text(end - std::min(*begin, end), '\0');
    std::size_t have = 0;
    for (ssize_t count = 1; have < text.size() && count > 0;) {
        count =
            pread(log.get(), &text[have], text.size() - have, static_cast<off_t>(*begin + have));
        have += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    text.resize(have);
    return text;
}

} // namespace

std::string plugin_log(int lines) {
    struct stat state {};
    const unique_fd log = open_log(&state);
    if (!log)
        return "the log is empty";
    std::size_t begin = 0;
    const std::string text = read_between(log, &begin, end_of(state).at);
    return lines < 0 ? text : last_lines(text, lines);
}

log_place end_of_plugin_log() {
    struct stat state {};
    return stat(plugin_log_file, &state) == 0 ? end_of(state) : log_place{};
}

std::optional<log_part> plugin_log_behind(const log_place& place) {
    struct stat state {};
    const unique_fd log = open_log(&state);
    if (!log) // a plugin may delete it at any time
        return std::nullopt;
    const log_place now = end_of(state);
    const bool is_same = now.file == place.file && now.at >= place.at;
    const std::size_t first = is_same ? place.at : 0;
    std::size_t begin = first;
    std::string text = read_between(log, &begin, now.at);
    const log_place end{now.file, begin + text.size()};
    return log_part{std::move(text), end, begin > first || (!is_same && place.file != 0)};
}

} // namespace pelmsim
