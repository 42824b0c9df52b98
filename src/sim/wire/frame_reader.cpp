#include "wire/frame_reader.h"

#include "wire/xml_excess.h"
#include "wire/xml_fault.h"

#include <cstring>
#include <new>

namespace pelmsim {
namespace {

constexpr int header_bytes = sizeof(msg_head_t);
constexpr int initial_bytes = 4096;

msg_head_t header_of(conf_buffer_t* buffer) {
    msg_head_t header;
    std::memcpy(&header, conf_buffer_data(buffer), sizeof header);
    return header;
}

bool announces_too_much(std::string_view bytes) {
    msg_head_t header;
    if (bytes.size() < sizeof header)
        return false;
    std::memcpy(&header, bytes.data(), sizeof header);
    return header.length > CONF_MSG_MAX_LENGTH;
}

} // namespace

frame_reader::frame_reader() : received_(conf_buffer_create(initial_bytes)) {
    if (received_ == nullptr)
        throw std::bad_alloc();
}

void frame_reader::add(std::span<const char> bytes) {
    void* const begin = const_cast<char*>(bytes.data());
    if (conf_buffer_append(&received_, begin, static_cast<int>(bytes.size())) < 0)
        throw std::bad_alloc();
}

std::optional<arrival> frame_reader::next() {
    const int length = conf_buffer_length(received_);
    if (length < header_bytes)
        return std::nullopt;
    const msg_head_t header = header_of(received_);
    if (header.magic != CONF_MSG_MAGIC || header.length > CONF_MSG_MAX_LENGTH)
        return arrival{.garbage = skip_garbage()};
    if (header.length > static_cast<u32_t>(length - header_bytes))
        return std::nullopt;
    const char* const begin = static_cast<const char*>(conf_buffer_data(received_)) + header_bytes;
    return take({begin, header.length}, header);
}

std::size_t frame_reader::bytes() const {
    return static_cast<std::size_t>(conf_buffer_length(received_));
}

std::size_t frame_reader::first_frame() const {
    if (bytes() < sizeof(msg_head_t))
        return 0;
    const msg_head_t header = header_of(received_);
    return header.magic == CONF_MSG_MAGIC && header.length <= CONF_MSG_MAX_LENGTH
               ? sizeof header + header.length
               : 0;
}

// A body that is no XML for certain, or is too much of it, is not even tried.
arrival frame_reader::take(std::string_view body, const msg_head_t& header) {
    arrival made{.header = header, .excess = xml_excess(body)};
    if (made.excess.empty())
        made.fault = character_fault(body);
    if (!made.excess.empty() || !made.fault.empty()) {
        skip(sizeof header + header.length);
        return made;
    }
    made.fault = unknown_entity(body);
    made.body.reset(plugin_parse_message(&received_));
    return made;
}

// A frame may still follow. What may be the beginning of a mark is kept. A mark before what is too
// long for a frame is none: otherwise each of many would be an event.
std::size_t frame_reader::skip_garbage() {
    const u32_t magic = CONF_MSG_MAGIC;
    const char* const mark = reinterpret_cast<const char*>(&magic);
    const std::string_view bytes(static_cast<const char*>(conf_buffer_data(received_)),
                                 this->bytes());
    std::size_t count = 0;
    do
        count = bytes.find(std::string_view(mark, sizeof magic), count + 1);
    while (count != std::string_view::npos && announces_too_much(bytes.substr(count)));
    if (count == std::string_view::npos) {
        std::size_t kept = sizeof magic - 1;
        while (!bytes.ends_with(std::string_view(mark, kept)))
            --kept;
        count = bytes.size() - kept;
    }
    skip(count);
    return count;
}

} // namespace pelmsim
