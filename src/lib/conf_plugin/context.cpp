#include "conf_plugin/context.h"

#include "conf_plugin/log.h"
#include "conf_plugin/parser.h"
#include "conf_plugin/registry.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <unistd.h>

// The daemon and its modules share this shape.
static_assert(offsetof(conf_plugin_context_t, name) == (sizeof(void*) == 8 ? 8 : 4));
static_assert(offsetof(conf_plugin_context_t, sock) == (sizeof(void*) == 8 ? 20 : 12));
static_assert(offsetof(conf_plugin_context_t, rpc_id) == (sizeof(void*) == 8 ? 24 : 16));
static_assert(offsetof(conf_plugin_context_t, err_code) == (sizeof(void*) == 8 ? 28 : 20));
static_assert(offsetof(conf_plugin_context_t, err_msg) == (sizeof(void*) == 8 ? 32 : 24));
static_assert(offsetof(conf_plugin_context_t, send_pos) == (sizeof(void*) == 8 ? 40 : 28));
static_assert(offsetof(conf_plugin_context_t, recv_buf) == (sizeof(void*) == 8 ? 48 : 32));
static_assert(offsetof(conf_plugin_context_t, cbs_nums) == (sizeof(void*) == 8 ? 64 : 40));
static_assert(offsetof(conf_plugin_context_t, cbs) == (sizeof(void*) == 8 ? 72 : 44));

namespace conf {

const char def_err_msg[] = "Service process failed.";

namespace {

constexpr int buffer_bytes = 1000;

// Beside the context, whose layout is fixed. A process has one.
struct {
    u32_t config_end; // slots 1 up to this are configuration callbacks
    u32_t status_end; // from there up to this are status callbacks, operations behind
    const conf_plugin_context_t* recorded; // the context of which that is known
} process;

body_parser parser; // of its messages

char* default_error() noexcept { return const_cast<char*>(def_err_msg); }

template <class Entry> u32_t count_entries(const Entry* entries) noexcept {
    u32_t count = 0;
    for (; entries != nullptr && entries->path != nullptr; ++entries)
        ++count;
    return count;
}

conf_plugin_context_t* allocate(const econf_plugin_subpub_info_t* info) noexcept {
    const u32_t configs = count_entries(info->config_cbs);
    const u32_t statuses = count_entries(info->status_cbs);
    const std::size_t slots =
        std::size_t{1} + configs + statuses + count_entries(info->operate_cbs);
    const std::size_t bytes =
        offsetof(conf_plugin_context_t, cbs) + slots * sizeof(econf_subpub_cb_t);
    auto* ctxt = static_cast<conf_plugin_context_t*>(std::calloc(1, bytes));
    if (ctxt == nullptr)
        return plugin_failure("Allocate %d byte(s) memmory for plugin context failed.",
                              static_cast<int>(bytes));
    process = {1 + configs, 1 + configs + statuses, ctxt};
    return ctxt;
}

slot_kind kind_of(u32_t index) noexcept {
    if (index == 0)
        return slot_kind::kick_off;
    if (index < process.config_end)
        return slot_kind::config;
    return index < process.status_end ? slot_kind::status : slot_kind::operate;
}

} // namespace

int make_context(conf_plugin_data* plugin, const char* name,
                 const econf_plugin_subpub_info_t* info) noexcept {
    conf_plugin_context_t* ctxt = allocate(info);
    plugin->plugin_ctxt = ctxt;
    if (ctxt == nullptr)
        return -1;
    ctxt->version = 2;
    ctxt->sock = -1;
    ctxt->rpc_id = 1;
    ctxt->cbs[0] = callback_cast<econf_subpub_cb_t>(info->kick_off);
    ctxt->cbs_nums = 1;
    ctxt->name = strdup(name);
    if (ctxt->name == nullptr)
        return -1;
    ctxt->recv_buf = conf_buffer_create(buffer_bytes);
    ctxt->send_buf = conf_buffer_create(buffer_bytes);
    if (ctxt->recv_buf == nullptr || ctxt->send_buf == nullptr)
        return plugin_failure("Create message buffer for remote plugin failed.");
    return 0;
}

body_parser* message_parser() noexcept { return &parser; }

void _free_plugin_context() noexcept {
    conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr || plugin->plugin_ctxt == nullptr)
        return;
    end_life();
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    if (ctxt->sock >= 0)
        (void)close(ctxt->sock);
    conf_buffer_destroy(ctxt->recv_buf);
    conf_buffer_destroy(ctxt->send_buf);
    std::free(ctxt->name);
    free_error_text(ctxt->err_msg);
    std::free(ctxt);
    parser.forget();
    process = {};
    plugin->plugin_ctxt = nullptr;
    if (plugin->pelmd_hooks == nullptr) // which stay for the life of the process
        del_plugin_from_hash();
}

void _plugin_set_error(conf_plugin_data* plugin, int err_code, const char* err_msg, ...) noexcept {
    char* text = nullptr;
    va_list arguments;
    va_start(arguments, err_msg);
    if (err_msg == nullptr || vasprintf(&text, err_msg, arguments) < 0)
        text = default_error();
    va_end(arguments);
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    ctxt->err_code = err_code;
    free_error_text(std::exchange(ctxt->err_msg, text)); // the new text may quote the old
}

int take_error(conf_plugin_context_t* ctxt, error_text* text) noexcept {
    text->reset(std::exchange(ctxt->err_msg, nullptr));
    return std::exchange(ctxt->err_code, 0);
}

econf_subpub_cb_t find_callback(const conf_plugin_context_t* ctxt, u32_t index,
                                slot_kind kind) noexcept {
    if (index >= ctxt->cbs_nums)
        return nullptr;
    // Of a context that somebody else has put into the entry, only slot 0 is known.
    const bool fits = ctxt == process.recorded ? kind_of(index) == kind
                                               : (index == 0) == (kind == slot_kind::kick_off);
    return fits ? ctxt->cbs[index] : nullptr;
}

} // namespace conf
