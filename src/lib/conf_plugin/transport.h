// Moves frames over a plugin's connection: queued and written across partial writes, gathered and cut
// off. What they say is no matter here. The queue may hold the rest of a request that needs no answer any
// more: exchange.h says when.
#pragma once

#include "conf_plugin.h"

#include <cstdint>

namespace conf {

// Events that end every wait: EPOLLERR, EPOLLHUP, EPOLLRDHUP.
constexpr std::uint32_t connection_lost = 0x2018;

// Queues an element as a frame; it stays the caller's.
int _cache_message(conf_plugin_data* plugin, xmlNode* root) noexcept;

// Writes what the socket takes of the first frame queued. A full socket is no failure.
int _send_message(conf_plugin_data* plugin) noexcept;

// Writes what the socket takes of the whole queue.
int send_queue(conf_plugin_data* plugin) noexcept;

// Reads until a complete frame is at the front of the receive buffer (*ready 1) or the socket has no
// more (*ready 0; also when the peer has closed).
int _recv_message(conf_plugin_data* plugin, bool_t* ready) noexcept;

// Forget and wipe what is queued, and what was received.
void drop_queue(conf_plugin_context_t* ctxt) noexcept;
void drop_input(conf_plugin_context_t* ctxt) noexcept;

// Steps the id that the next request will carry. 0 is none.
void advance_id(conf_plugin_context_t* ctxt) noexcept;

// Makes an epoll instance that watches a socket. @return it, or -1 (reported)
int watch_socket(int sock, std::uint32_t events) noexcept;

// Waits for events of a connection, as long as timeout_ms whatever signals come. @return them, or 0
// (reported) when none came in time, or when they say that the connection is lost
std::uint32_t next_events(int epoll, int timeout_ms) noexcept;

} // namespace conf
