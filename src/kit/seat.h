// The place in the library's registry where a plugin sits that the kit asks.
#pragma once

#include "catcher.h"

#include <conf_plugin.h>
#include <memory>

namespace pelmtest {

// Which of the plugin interfaces the callbacks have.
enum class api { older = 1, present = 2 };

// The process as an active plugin whose connection leads to the kit. As the library frees all that a
// plugin has when a callback closes it, what it may free is made the way that it does.
class seat {
public:
    // The first callback is the kick-off. Throws problem when the place is taken.
    seat(api version, const std::vector<econf_subpub_cb_t>& callbacks);
    seat(const seat&) = delete;
    seat& operator=(const seat&) = delete;
    ~seat();

    bool is_here() const { return getpid() == process_; } // not in a child since
    bool is_closed() const { return get_plugin_context() != context_; }
    bool is_active() const { return !is_closed() && context_->bit_activate; }

    // Lets the loop serve a request. Null when the plugin was closed meanwhile.
    unique_node ask(const char* method, unique_node params);

    std::vector<std::string> take_notifications() { return catcher_->take_notifications(); }

private:
    const pid_t process_ = getpid();
    conf_plugin_context_t* const context_; // the registry's
    std::unique_ptr<catcher> catcher_;
    u32_t last_id_ = 0;
};

} // namespace pelmtest
