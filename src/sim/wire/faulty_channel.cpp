#include "wire/faulty_channel.h"

#include <utility>

namespace pelmsim {
namespace {

constexpr milliseconds most_to_read{1000};
constexpr milliseconds between_looks{1}; // nothing tells that the other end has read

} // namespace

void faulty_channel::start(std::function<void()> ready) {
    ready_ = std::move(ready);
    line_->start(ready_);
}

std::optional<std::size_t> faulty_channel::read(std::span<char> room) {
    return is_deaf_ ? 0 : line_->read(room);
}

std::optional<std::size_t> faulty_channel::write(std::string_view bytes) {
    meet();
    if (waits_)
        return 0;
    if (!ahead_.empty())
        bytes = bytes.substr(0, ahead_.front().place - written_);
    const auto count = line_->write(bytes);
    written_ += count.value_or(0);
    meet();
    return count;
}

void faulty_channel::call_soon() { soon_ = loop_.after(milliseconds(0), ready_); }

void faulty_channel::delay_at(std::size_t place, milliseconds time) {
    ahead_.push_back({.place = place, .time = time});
    meet();
}

void faulty_channel::stop_at(std::size_t place, stop when, std::function<void()> call) {
    ahead_.push_back({.place = place, .time = {}, .when = when, .call = std::move(call)});
    if (ahead_.size() == 1)
        approach();
    meet();
}

// A peer that reads nothing may keep a stop from ever being reached.
void faulty_channel::approach() {
    if (!ahead_.front().time)
        latest_ = loop_.after(most_to_read, ahead_.front().call);
}

// Begins to wait where the first obstacle is.
void faulty_channel::meet() {
    if (waits_ || ahead_.empty() || ahead_.front().place > written_)
        return;
    waits_ = true;
    const obstacle& first = ahead_.front();
    if (first.time) {
        next_ = loop_.after(*first.time, [this] { pass(); });
        return;
    }
    be_deaf({}, {}); // what the other end does now would be a matter of chance
    if (first.when == stop::at_once)
        next_ = loop_.after(milliseconds(0), first.call);
    else
        await_reader();
}

void faulty_channel::pass() {
    ahead_.pop_front();
    waits_ = false;
    if (!ahead_.empty())
        approach();
    const auto ready = ready_; // it may end the channel
    ready();
}

void faulty_channel::await_reader() {
    if (line_->is_read())
        next_ = loop_.after(milliseconds(0), ahead_.front().call);
    else
        next_ = loop_.after(between_looks, [this] { await_reader(); });
}

void faulty_channel::be_deaf(std::optional<milliseconds> time, std::function<void()> call) {
    is_deaf_ = true;
    line_->listen(false);
    if (time)
        deaf_ = loop_.after(*time, std::move(call));
    else
        deaf_.cancel();
}

bool faulty_channel::hear_again() {
    const bool is_stopped = waits_ && !ahead_.front().time;
    if (is_stopped || !is_deaf_)
        return false;
    line_->listen(true);
    is_deaf_ = false;
    return true;
}

} // namespace pelmsim
