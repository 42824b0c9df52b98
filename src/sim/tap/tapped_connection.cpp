#include "tap/tapped_connection.h"

#include "wire/unix_address.h"

#include <cerrno>
#include <cstring>

namespace pelmsim {
namespace {

constexpr milliseconds until_next_try{20};

// Nothing, with errno, when that cannot be done.
unique_fd connected_to(const std::string& place) {
    unique_fd made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_un address = unix_address(place);
    if (made &&
        connect(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return made;
    const int error = errno;
    made.reset();
    errno = error;
    return made;
}

bool may_be_tried_again(int error) {
    return error == EAGAIN || error == EINTR || error == EMFILE || error == ENFILE ||
           error == ENOMEM;
}

} // namespace

tapped_connection::tapped_connection(relays& owner, unsigned number, peer who,
                                     const std::string& place, unique_fd accepted)
    : owner_(owner),
      number_(number),
      who_(std::move(who)),
      place_(place),
      accepted_(std::move(accepted)) {}

void tapped_connection::connect() {
    unique_fd daemon = connected_to(place_);
    if (!daemon && may_be_tried_again(errno)) {
        next_try_ = owner_.loop_.after(until_next_try, [this] { connect(); });
        return wait(true);
    }
    if (!daemon)
        return refuse(errno);
    wait(false);
    (void)tell_of_it();
    relay_.emplace(owner_.loop_, std::move(accepted_), std::move(daemon),
                   static_cast<relay_owner&>(*this));
    relay_->start();
}

void tapped_connection::wait(bool waits) {
    if (std::exchange(is_waiting_, waits) != waits)
        owner_.count_waiting(who_.is, waits ? 1 : -1);
}

// As if nobody had listened here; the next one is to find that so.
void tapped_connection::refuse(int error) {
    owner_.events_.report(
        {.kind = event_kind::refused,
         .who = who_,
         .text = "the daemon cannot be reached: " + std::string(std::strerror(error))});
    if (error == ECONNREFUSED || error == ENOENT)
        owner_.nobody_();
    owner_.all_.erase(number_);
}

// Who reads along may have no room for it before later.
bool tapped_connection::tell_of_it() {
    if (!is_told_)
        is_told_ =
            owner_.told_.offer({.what = passing::opened, .connection = number_, .who = who_});
    return is_told_;
}

void tapped_connection::passed(direction way, std::string_view bytes) {
    std::size_t& lost = lost_[way == direction::to_peer ? 0 : 1];
    const bool is_taken = tell_of_it() && owner_.told_.offer({.what = passing::bytes,
                                                              .connection = number_,
                                                              .way = way,
                                                              .bytes = std::string(bytes),
                                                              .lost = lost,
                                                              .at = owner_.loop_.now()});
    lost = is_taken ? 0 : lost + bytes.size();
}

void tapped_connection::ended(bool by_daemon) {
    for (const direction way : {direction::to_peer, direction::from_peer})
        if (const std::size_t lost = lost_[way == direction::to_peer ? 0 : 1]; is_told_ && lost > 0)
            owner_.told_.push({.what = passing::bytes,
                               .connection = number_,
                               .way = way,
                               .lost = lost,
                               .at = owner_.loop_.now()});
    if (is_told_)
        owner_.told_.push({.what = passing::ended, .connection = number_, .by_daemon = by_daemon});
    owner_.all_.erase(number_);
}

} // namespace pelmsim
