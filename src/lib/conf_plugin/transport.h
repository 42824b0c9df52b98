// Moves frames over a plugin's connection: queued and written across partial writes, gathered and cut
// off, and the two synchronous operations that the rest is built on.
//
// A synchronous operation leaves the send queue empty, whether it succeeds or not. The one exception is
// a request whose answer came before it was written whole: the rest of it stays, so that the framing
// holds, and goes out ahead of the next request or answer.
#pragma once

#include "conf_plugin.h"
#include "support/handle.h"

#include <cstdint>

namespace conf {

// Events that end every wait: EPOLLERR, EPOLLHUP, EPOLLRDHUP.
constexpr std::uint32_t connection_lost = 0x2018;

// Queues an element as a frame; it stays the caller's.
int _cache_message(conf_plugin_data* plugin, xmlNode* root) noexcept;

// Writes what the socket takes of the first frame queued. A full socket is no failure.
int _send_message(conf_plugin_data* plugin) noexcept;

// Reads until a complete frame is at the front of the receive buffer (*ready 1) or the socket has no
// more (*ready 0; also when the peer has closed).
int _recv_message(conf_plugin_data* plugin, bool_t* ready) noexcept;

// Sends a request, which stays the caller's and carries the context's rpc_id, and waits for the answer
// with that id. Other frames that come before it are dropped; frames behind it stay. *reply is the
// caller's.
int _syn_send_rpc(conf_plugin_data* plugin, xmlNode* rpc, xmlNode** reply) noexcept;

// Sends an answer, which stays the caller's, and waits until it is written.
int _syn_send_reply(conf_plugin_data* plugin, xmlNode* reply) noexcept;

// Sends a request whose answer tells no more than success or failure.
int _plugin_single_rpc_send(conf_plugin_data* plugin, xmlNode* rpc) noexcept;

// Answers a request with the error recorded, which is thereby forgotten, or with success.
int _plugin_single_reply_send(conf_plugin_data* plugin, u32_t msgid) noexcept;

// Makes an epoll instance that watches a socket. @return it, or -1 (reported)
int watch_socket(int sock, std::uint32_t events) noexcept;

} // namespace conf
