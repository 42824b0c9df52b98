#include "tap/frame_follower.h"

#include <algorithm>

namespace pelmsim {

void frame_follower::add(std::span<const char> bytes) {
    const std::size_t skipped = std::min(unread_, bytes.size());
    unread_ -= skipped;
    bytes = bytes.subspan(skipped);
    if (bytes.empty())
        return;
    if (!received_)
        received_.emplace();
    received_->add(bytes);
    while (take_one()) {
        // it has been told of
    }
    if (received_->bytes() == 0)
        received_.reset(); // it may have grown
    count_held();
}

void frame_follower::begin_again() {
    received_.reset();
    unread_ = 0;
    count_held();
}

void frame_follower::count_held() {
    const std::size_t now = received_ ? received_->bytes() : 0;
    room_.change(std::exchange(held_, now), now);
}

// False when more has to come first.
bool frame_follower::take_one() {
    const std::size_t size = received_->first_frame();
    if (size > longest)
        return pass_over("it is too long");
    if (size > received_->bytes())
        return !room_.has(size - held_) && pass_over("too many are unfinished");
    auto next = received_->next();
    if (!next)
        return false;
    if (next->garbage > 0)
        tell_.defect({cause::garbage, next->garbage});
    else if (!next->excess.empty())
        tell_.defect({cause::excess, next->header.length, std::move(next->excess)});
    else if (next->body == nullptr)
        tell_.defect({cause::no_xml, next->header.length, std::move(next->fault)});
    else
        tell_.frame(std::move(*next));
    return true;
}

bool frame_follower::pass_over(const char* why) {
    const std::size_t size = received_->first_frame();
    const std::size_t here = std::min(size, received_->bytes());
    received_->skip(here);
    unread_ = size - here;
    tell_.defect({cause::failure, 0,
                  "a frame of " + std::to_string(size - sizeof(msg_head_t)) +
                      " bytes is not read along: " + why});
    return true;
}

} // namespace pelmsim
