#include "wire/line_output.h"

#include "model/problem.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <unistd.h>

namespace pelmsim {
namespace {

// Whether a pipe has room for PIPE_BUF bytes, which are then written at once.
bool has_room(int fd, milliseconds limit) {
    pollfd one{fd, POLLOUT, 0};
    int count = 0;
    do
        count = poll(&one, 1, static_cast<int>(limit.count()));
    while (count < 0 && errno == EINTR);
    return count > 0;
}

} // namespace

// The descriptor is not made non-blocking, which others who have it would notice. A file cannot be
// waited for, and need not be.
line_output::line_output(event_loop& loop, int fd, milliseconds patience, loss lost)
    : loop_(loop), fd_(fd), patience_(patience), lost_(std::move(lost)) {
    try {
        loop_.watch(fd_, 0, [this](short events) {
            if ((events & (POLLERR | POLLHUP)) != 0)
                lose("their reader has gone");
            else
                write_what_fits();
        });
        watched_ = true;
    } catch (const problem&) {
        watched_ = false;
    }
}

line_output::~line_output() { forget(); }

void line_output::write(const std::string& line) {
    if (is_lost_)
        return;
    lines_ += line;
    write_what_fits();
    write_until_left(most_unread);
}

void line_output::write_until_left(std::size_t count) {
    while (left() > count)
        if (has_room(fd_, patience_))
            write_piece();
        else
            lose(std::to_string(left()) + " bytes are unread");
}

void line_output::write_what_fits() {
    while (left() > 0 && has_room(fd_, milliseconds(0)))
        write_piece();
    if (watched_)
        loop_.change(fd_, left() > 0 ? POLLOUT : 0);
}

void line_output::write_piece() {
    const std::size_t size = std::min<std::size_t>(left(), PIPE_BUF);
    const ssize_t count = ::write(fd_, lines_.data() + written_, size);
    if (count < 0 && errno != EAGAIN && errno != EINTR)
        return lose(errno == EPIPE ? "their reader has gone" : std::strerror(errno));
    written_ += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    if (written_ < lines_.size() / 2) // so that what has been written is not kept, nor moved often
        return;
    lines_.erase(0, written_);
    written_ = 0;
}

void line_output::lose(const std::string& why) {
    if (std::exchange(is_lost_, true))
        return;
    forget();
    lines_.clear();
    written_ = 0;
    lost_(why);
}

void line_output::forget() {
    if (std::exchange(watched_, false))
        loop_.forget(fd_);
}

} // namespace pelmsim
