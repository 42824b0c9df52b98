#include "wire/line_input.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <unistd.h>

namespace pelmsim {
namespace {

constexpr int most_reads = 16; // at once, of what may have no end

// A file, which no loop can wait for, always has something: its end, at last.
bool has_something(int fd) {
    pollfd one{fd, POLLIN, 0};
    return poll(&one, 1, 0) > 0;
}

} // namespace

line_input::line_input(event_loop& loop, int fd, std::size_t longest)
    : loop_(loop), fd_(fd), longest_(longest) {}

bool line_input::is_ready() {
    for (int i = 0; i < most_reads && !has_line() && !ended_ && has_something(fd_); ++i)
        read_some();
    const bool ready = has_line() || ended_;
    const bool has_more = !ready && has_something(fd_);
    watch(!ready && !has_more);
    if (has_more)
        soon_ = loop_.after(milliseconds(0), [] {});
    return ready;
}

std::optional<std::string> line_input::take() {
    if (!has_line() && unread_.empty())
        return std::nullopt;
    std::string line = unread_.substr(0, end_of_line_);
    unread_.erase(0, has_line() ? end_of_line_ + 1 : unread_.size());
    end_of_line_ = unread_.find('\n');
    line.resize(std::min(line.size(), longest_ + 1));
    return line;
}

void line_input::read_some() {
    char bytes[4096];
    const ssize_t count = read(fd_, bytes, sizeof bytes);
    if (count > 0)
        append({bytes, static_cast<std::size_t>(count)});
    else if (count == 0 || (errno != EAGAIN && errno != EINTR))
        ended_ = true;
}

// What is there already has no end of a line in it.
void line_input::append(std::string_view bytes) {
    const std::size_t end = bytes.find('\n');
    const std::size_t room = longest_ + 1 - std::min(unread_.size(), longest_ + 1);
    unread_ += bytes.substr(0, std::min(end, room));
    if (end == std::string_view::npos)
        return;
    end_of_line_ = unread_.size();
    unread_ += bytes.substr(end);
}

void line_input::watch(bool wanted) {
    if (wanted == watched_)
        return;
    if (wanted)
        loop_.watch(fd_, POLLIN, [](short) {});
    else
        loop_.forget(fd_);
    watched_ = wanted;
}

} // namespace pelmsim
