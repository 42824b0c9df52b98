// Requests and their answers: the two synchronous operations that the plugin API is built on, and what an
// answer means.
//
// An operation leaves the send queue empty, whether it succeeds or not. The one exception is a request
// whose answer came before it was written whole: the rest of it stays, so that the framing holds, and
// goes out ahead of the next request or answer.
#pragma once

#include "conf_plugin.h"

namespace conf {

// Sends a request, which stays the caller's and carries the context's rpc_id, and waits for the answer
// with that id. Other frames that come before it are dropped; frames behind it stay. *reply is the
// caller's.
int _syn_send_rpc(conf_plugin_data* plugin, xmlNode* rpc, xmlNode** reply) noexcept;

// Sends an answer, which stays the caller's, and waits until it is written.
int _syn_send_reply(conf_plugin_data* plugin, xmlNode* reply) noexcept;

// As _syn_send_rpc(). @return the answer, or null (reported)
xmlNode* ask_pelmd(conf_plugin_data* plugin, xmlNode* rpc) noexcept;

// As plugin_parse_reply(), for an answer to this plugin.
int split_reply(conf_plugin_data* plugin, xmlNode* reply, xmlNode** result,
                xmlNode** error) noexcept;

// Sends a request whose answer tells no more than success or failure.
int _plugin_single_rpc_send(conf_plugin_data* plugin, xmlNode* rpc) noexcept;

// Answers a request with the error recorded, which is thereby forgotten, or with success.
int _plugin_single_reply_send(conf_plugin_data* plugin, u32_t msgid) noexcept;

} // namespace conf
