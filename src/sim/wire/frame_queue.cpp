#include "wire/frame_queue.h"

namespace pelmsim {

u16_t frame_queue::add(std::string_view body, bool joined) {
    const u16_t sequence = next_sequence_++;
    const msg_head_t header{CONF_MSG_MAGIC, static_cast<u32_t>(body.size()), sequence, 0};
    if (!joined || unsent_.empty())
        unsent_.emplace_back();
    std::string& piece = unsent_.back();
    piece.reserve(piece.size() + sizeof header + body.size());
    piece.append(reinterpret_cast<const char*>(&header), sizeof header);
    piece += body;
    bytes_ += sizeof header + body.size();
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
