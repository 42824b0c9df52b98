// A plugin on an event loop that does what loops have to bear. Linked with each of examples/loops/.
//
// Its operation /story does what the input names, one element.
#include "loop.h"

#include <pelmconf.hpp>

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

pelmconf::plugin plugin("story");
int losses;
bool is_last;            // whether the next kick-off is the end
int taken[2] = {-1, -1}; // a pipe that has the number of the connection that was closed

void lost();

// For a loop, which is C: what fails is only said.
template <void (*Code)()> void guarded() {
    try {
        Code();
    } catch (const std::exception& why) {
        std::puts(why.what());
    }
}

void attach() {
    if (loop_attach(lost) < 0)
        throw pelmconf::error(errno, "The loop takes no plugin.");
}

void begin() {
    try {
        plugin.start(ACTIVATE_WITH_NONE);
        attach();
        loop_asked();
    } catch (const pelmconf::error&) {
        plugin.close();
        loop_after(20, begin);
    }
}

void lost() {
    std::printf("loss %d\n", ++losses);
    begin();
}

// Attached while inactive, for once.
void begin_in_callback() {
    plugin.close();
    if (econf_plugin_init("story", plugin.table()) < 0)
        throw pelmconf::error(ENOTCONN);
    attach();
    plugin.activate(ACTIVATE_WITH_NONE);
}

// Tells how many descriptors are open, too, beyond those of the first time.
void ask() {
    static int first;
    int open = 0;
    for (int fd = 0; fd < 256; fd++)
        open += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    first = first == 0 ? open : first;
    pelmconf::pull("/story");
    std::printf("asked with %d more\n", open - first);
    loop_asked();
}

// What was written into the pipe is there still, for nobody has taken it for the connection.
void come_back() {
    char byte = 0;
    if (read(taken[0], &byte, 1) == 1 && byte == 'x')
        std::puts("untouched");
    (void)close(taken[0]);
    (void)close(taken[1]);
    begin();
}

void close_it() {
    plugin.close();
    if (pipe(taken) == 0 && write(taken[1], "x", 1) == 1)
        loop_after(50, come_back);
}

void wake() {
    plugin.activate(ACTIVATE_WITH_NONE);
    std::puts("awake");
    loop_asked();
}

void end() {
    plugin.close();
    loop_stop();
}

void kicked() {
    std::puts("kicked");
    if (is_last)
        end();
}

void tell(const pelmconf::operation& operation) {
    const std::string what = operation.input.first().name();
    if (what == "ask" || what == "end") {
        is_last = what == "end";
        loop_after(1, guarded<ask>);
    } else if (what == "close") {
        close_it();
    } else if (what == "again") {
        begin_in_callback();
    } else {
        plugin.deactivate();
        if (what == "rest")
            loop_after(50, guarded<wake>);
    }
}

void describe() {
    pelmconf::log_up_to(DBG_ERROR);
    plugin.on_operation("/story", tell).on_kick_off(kicked);
}

} // namespace

int main() {
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::setvbuf(stdout, nullptr, _IOLBF, 0);
    guarded<describe>();
    const int status = loop_run(begin, end);
    std::printf("%d losses\n", losses);
    return status;
}
