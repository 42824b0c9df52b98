#include "wire/datagram_receiver.h"

#include <sys/socket.h>
#include <utility>

namespace pelmsim {
namespace {

constexpr milliseconds until_next_try{200};
constexpr int most_reads = 512; // at once; a queue holds no more as a rule

} // namespace

void datagram_receiver::start(int socket) {
    socket_ = socket;
    loop_.watch(socket_, 0, [this](short) {
        try {
            on_ready();
        } catch (const std::exception& why) { // it may lie there still
            loop_.change(socket_, 0);
            next_try_ = loop_.after(until_next_try, [this] { listen(); });
            owner_.failed(why.what());
        }
    });
    listen();
}

void datagram_receiver::stop() {
    next_try_.cancel();
    loop_.forget(std::exchange(socket_, -1));
}

void datagram_receiver::hold(bool held) {
    held_ = held;
    listen();
}

void datagram_receiver::listen() { loop_.change(socket_, held_ ? 0 : POLLIN); }

void datagram_receiver::on_ready() {
    for (int i = 0; i < most_reads && !held_; ++i) {
        const ssize_t size = recv(socket_, nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
        if (size < 0)
            return;
        std::string datagram(static_cast<std::size_t>(size), '\0');
        (void)recv(socket_, datagram.data(), datagram.size(), 0);
        owner_.take(std::move(datagram));
    }
}

} // namespace pelmsim
