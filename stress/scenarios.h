// What can be tried. Each prints its figures, and ends the program when something does not hold.
#pragma once

namespace stress {

// So many changes, in so many lives of the daemon: one answer to each but for those that were cut off,
// and memory, descriptors and mappings stay as they are.
void soak(long changes, long lives);

// Hangs up behind each byte that the daemon sends, and each that it receives, in a plugin's whole life;
// or behind each so manyth.
void hangups(long every, long first);

// Daemons that mislead.
void hostile();

// Threads, each so many rounds of what may be called from any of them.
void threads(long rounds);

// Processes that share the table of clients, of which so many are killed, wherever they are.
void table(long kills);

} // namespace stress
