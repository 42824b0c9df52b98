// Short ways with buffers. The transport's own keep a rule that others need not: every byte behind the
// content is zero. So what is taken out is wiped on the spot, and pages given back hold nothing.
#pragma once

#include "conf_buffer.h"

namespace conf {

// @return where len more bytes and a terminator fit without growing, or null
char* _buffer_room(conf_buffer_t* buf, int len) noexcept;

// Counts bytes that were written into the room as content.
void _buffer_added(conf_buffer_t* buf, int count) noexcept;

// Takes len bytes, not more than there are, off the front of a buffer that keeps the rule or is a
// page long, and wipes where they stood. Memory goes back as in conf_buffer_slim(), but what stays is
// not moved to another page.
void _buffer_consume(conf_buffer_t* buf, int len) noexcept;

// Takes len bytes, 1 at least and not more than there are, off the front of any buffer and slims it. One
// that is a page long already is wiped where it stands, since it would move to another such page.
void _buffer_cut(conf_buffer_t** buf, int len) noexcept;

} // namespace conf
