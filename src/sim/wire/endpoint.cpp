#include "wire/endpoint.h"

#include "model/problem.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace pelmsim {

void endpoint::open() {
    socket_ = enable_();
    if (socket_ < 0)
        throw problem(std::string("cannot open ") + path_ + ": " + std::strerror(errno));
}

void endpoint::close() {
    if (is_open())
        disable_(std::exchange(socket_, -1));
}

} // namespace pelmsim
