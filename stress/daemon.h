// The daemon's end of a plugin's connection, byte for byte.
#pragma once

#include "support/handle.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace stress {

// Ends what was under way when the line is down, on either side.
struct hung_up {};

// A daemon's socket in the place where plugins look for it.
class service {
public:
    service(); // removes what is there
    service(const service&) = delete;
    service& operator=(const service&) = delete;
    ~service();

    int accept() const;

private:
    conf::unique_fd listener_;
};

// One connection. It hangs up by itself when so many bytes went out or came in.
class line {
public:
    explicit line(const service& at) : line(at, SIZE_MAX, SIZE_MAX) {}
    line(const service& at, std::size_t most_out, std::size_t most_in)
        : sock_(at.accept()), out_left_(most_out), in_left_(most_in) {}

    // These throw hung_up.
    void send(std::string_view bytes);
    std::string receive(); // the next frame's body

    // Answers the plugin's next request. @return its body
    std::string answer(const std::string& outcome = "<result/>");

    // Sends a request, and answers the requests that the plugin makes of it. @return its answer
    std::string request(const std::string& method, const std::string& params);

    // The same, where other answers may come first.
    void request_amid(const std::string& method, const std::string& params);

    std::size_t bytes_out() const { return out_; }
    std::size_t bytes_in() const { return in_; }

private:
    std::string read(std::size_t count);
    std::string next_answer(); // having answered what the plugin asks for before

    conf::unique_fd sock_;
    std::size_t out_left_, in_left_;
    std::size_t out_ = 0, in_ = 0;
    int next_id_ = 1000;
};

bool holds(std::string_view text, std::string_view part);

// A message with a header.
std::string request_text(const std::string& method, const std::string& params, int id);

} // namespace stress
