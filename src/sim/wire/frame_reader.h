// Bytes that came, taken apart into frames.
#pragma once

#include "model/owners.h"

#include <conf_plugin.h>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace pelmsim {

// One frame, or what came in place of one.
struct arrival {
    std::size_t garbage = 0; // so many bytes that begin no frame; otherwise
    msg_head_t header = {};  // it is a frame
    unique_node body = {};   // of it; null when that is no well-formed XML
    std::string fault = {};  // of such a body, as far as it can be told
    std::string excess = {}; // of a body that nobody tries to read
};

class frame_reader {
public:
    frame_reader(); // throws bad_alloc
    frame_reader(const frame_reader&) = delete;
    frame_reader& operator=(const frame_reader&) = delete;
    ~frame_reader() { conf_buffer_destroy(received_); }

    void add(std::span<const char> bytes); // throws bad_alloc

    // The next one; nothing while more has to come first.
    std::optional<arrival> next();

    // What has come and was not taken: all of it, and the frame that it begins with, with its
    // header, as long as that will be, or 0.
    std::size_t bytes() const;
    std::size_t first_frame() const;

    // Takes so many of its first bytes away.
    void skip(std::size_t count) { conf_buffer_remove(received_, 0, static_cast<int>(count)); }

private:
    std::size_t skip_garbage();
    arrival take(std::string_view body, const msg_head_t& header);

    conf_buffer_t* received_; // raw: the calls that fill it move it
};

} // namespace pelmsim
