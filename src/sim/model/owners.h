// Owners of descriptors and XML nodes.
#pragma once

#include <libxml/tree.h>
#include <memory>
#include <unistd.h>
#include <utility>

namespace pelmsim {

class unique_fd {
public:
    explicit unique_fd(int fd = -1) noexcept : fd_(fd) {}
    unique_fd(unique_fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    unique_fd& operator=(unique_fd&& other) noexcept {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }
    ~unique_fd() { reset(); }

    int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    void reset(int fd = -1) noexcept {
        if (const int old = std::exchange(fd_, fd); old >= 0)
            (void)::close(old);
    }

private:
    int fd_;
};

struct node_deleter {
    void operator()(xmlNode* node) const noexcept { xmlFreeNode(node); }
};

struct node_list_deleter {
    void operator()(xmlNode* first) const noexcept { xmlFreeNodeList(first); }
};

using unique_node = std::unique_ptr<xmlNode, node_deleter>;
using unique_nodes = std::unique_ptr<xmlNode, node_list_deleter>; // the first of siblings

} // namespace pelmsim
