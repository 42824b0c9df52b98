#include "wire/frame_queue.h"

namespace pelmsim {

u16_t frame_queue::add(std::string_view body) {
    const u16_t sequence = next_sequence_++;
    const msg_head_t header{CONF_MSG_MAGIC, static_cast<u32_t>(body.size()), sequence, 0};
    std::string frame;
    frame.reserve(sizeof header + body.size());
    frame.append(reinterpret_cast<const char*>(&header), sizeof header);
    frame += body;
    unsent_.push_back(std::move(frame));
    bytes_ += unsent_.back().size();
    return sequence;
}

void frame_queue::written(std::size_t count) {
    written_ += count;
    bytes_ -= count;
    if (written_ < unsent_.front().size())
        return;
    unsent_.pop_front();
    written_ = 0;
}

void frame_queue::clear() {
    unsent_ = {};
    bytes_ = 0;
    written_ = 0;
}

} // namespace pelmsim
