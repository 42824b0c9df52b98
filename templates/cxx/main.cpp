// Starts the plugin of sample-plugin.cpp and serves the daemon until SIGTERM. When the daemon goes away, it
// registers again.
#include <pelmconf.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <poll.h>
#include <sys/signalfd.h>

void describe(pelmconf::plugin& plugin); // of sample-plugin.cpp

int main() {
    (void)std::signal(SIGPIPE, SIG_IGN); // a dying daemon must not take this process with it
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigprocmask(SIG_BLOCK, &ending, nullptr); // it is waited for like input
    pollfd end{signalfd(-1, &ending, SFD_CLOEXEC), POLLIN, 0};
    (void)std::setvbuf(stdout, nullptr, _IOLBF, 0);
    pelmconf::log_up_to(DBG_ERROR);

    pelmconf::plugin plugin("sample-plugin");
    describe(plugin);
    for (int delay_ms = 100; end.revents == 0; delay_ms = std::min(2 * delay_ms, 10000)) {
        try {
            pollfd watched[] = {end, {plugin.start(), POLLIN | POLLRDHUP, 0}};
            delay_ms = 100;
            do
                plugin.serve(); // before the first wait, too: requests may have come already
            while (poll(watched, 2, -1) < 0 ||
                   (watched[0].revents == 0 && watched[1].revents == POLLIN));
        } catch (const pelmconf::error&) { // there is no daemon yet
        }
        plugin.close();
        (void)poll(&end, 1, delay_ms);
    }
    return 0;
}
