// One round-trip program: drive.c has main, pins, starts the plugin, asks and times; a contestant
// brings the rest. The side that asks and the side that answers are two processes of one program.
#pragma once

#include <stddef.h>

struct load {
    const char* mode; // which of a program's ways to carry it
    size_t bytes;     // of the request
    int asleep;       // the plugin sleeps before each request
    int pull;         // the plugin asks for 4 KiB before it answers
    int operate;      // the request is an operation
    int hands_back;   // which is answered with what it holds, rather than with nothing
    long requests;    // how many the plugin serves before it ends
};

// The plugin's process: answers load->requests requests and returns.
void serve(const struct load* load, const char* directory);

// The asking process, before the plugin is started, and after it.
void open_door(const struct load* load, const char* directory);
void meet(const struct load* load);

// One request, to its whole answer.
void ask(void);

// Ends the program with a reason: always, or when a step has failed.
__attribute__((noreturn)) void give_up(const char* step);
static inline void must(int succeeded, const char* step) {
    if (!succeeded)
        give_up(step);
}
