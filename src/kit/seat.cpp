#include "seat.h"

#include "model/problem.h"

#include <cerrno>
#include <conf_api.h>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/socket.h>

namespace pelmtest {

using pelmsim::problem;

namespace {

constexpr int buffer_bytes = 1000;
constexpr u32_t last_message_id = 65535;

const conf_plugin_context_t* of_parent; // for leak checkers, which do not find it in the registry

// The registry has it from the beginning.
conf_plugin_context_t* new_context(std::size_t slots) {
    conf_plugin_data* const entry = get_plugin_from_hash();
    if (entry != nullptr && entry->plugin_ctxt != nullptr)
        throw problem("This process is a plugin already: it has called econf_plugin_init().");
    const std::size_t bytes =
        offsetof(conf_plugin_context_t, cbs) + slots * sizeof(econf_subpub_cb_t);
    auto* const context = static_cast<conf_plugin_context_t*>(std::calloc(1, bytes));
    if (entry == nullptr || context == nullptr)
        throw std::bad_alloc();
    context->sock = -1;
    entry->plugin_ctxt = context;
    return context;
}

void fill(conf_plugin_context_t& context, api version,
          const std::vector<econf_subpub_cb_t>& callbacks) {
    context.version = static_cast<int>(version);
    context.bit_activate = 1;
    context.rpc_id = 1;
    context.name = strdup("pelmtest");
    context.recv_buf = conf_buffer_create(buffer_bytes);
    context.send_buf = conf_buffer_create(buffer_bytes);
    for (const econf_subpub_cb_t callback : callbacks)
        context.cbs[context.cbs_nums++] = callback;
    if (context.name == nullptr || context.recv_buf == nullptr || context.send_buf == nullptr)
        throw std::bad_alloc();
}

// Gives the context its end. @return the daemon's
unique_fd connect(conf_plugin_context_t& context) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) < 0)
        throw problem(std::string("No connection for the plugin: ") + std::strerror(errno));
    context.sock = ends[0];
    return unique_fd(ends[1]);
}

} // namespace

seat::seat(api version, const std::vector<econf_subpub_cb_t>& callbacks)
    : context_(new_context(callbacks.size())) {
    try {
        fill(*context_, version, callbacks);
        catcher_ = std::make_unique<catcher>(connect(*context_));
    } catch (...) {
        econf_plugin_close();
        throw;
    }
}

// In a child, the registry has it under its parent's name, for good.
seat::~seat() {
    if (!is_here())
        of_parent = context_;
    else if (!is_closed())
        econf_plugin_close();
}

// What has arrived is served before anything is read, so that no request is too long for a socket.
unique_node seat::ask(const char* method, unique_node params) {
    catcher_->lead_notifications();
    last_id_ = last_id_ % last_message_id + 1;
    const unique_node request(plugin_build_rpc_message(method, params.release(), last_id_));
    if (request == nullptr)
        throw std::bad_alloc();
    std::string frame = frame_of(request.get());
    if (conf_buffer_append(&context_->recv_buf, frame.data(), static_cast<int>(frame.size())) < 0)
        throw std::bad_alloc();
    econf_plugin_run();
    return catcher_->take_answer();
}

} // namespace pelmtest
