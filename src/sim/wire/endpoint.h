// One of the daemon's sockets, as the library opens and closes it.
#pragma once

namespace pelmsim {

class endpoint {
public:
    using enabler = int (*)();
    using disabler = void (*)(int socket);

    // The path is where the library puts it, which may change before it is opened.
    endpoint(enabler enable, disabler disable, const char* path)
        : enable_(enable), disable_(disable), path_(path) {}
    endpoint(const endpoint&) = delete;
    endpoint& operator=(const endpoint&) = delete;
    ~endpoint() { close(); }

    void open(); // throws problem
    void close();

    bool is_open() const { return socket_ >= 0; }
    int socket() const { return socket_; }
    const char* path() const { return path_; }

private:
    enabler enable_;
    disabler disable_;
    const char* path_;
    int socket_ = -1;
};

} // namespace pelmsim
