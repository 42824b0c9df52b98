// Starts the plugin of sample-plugin.cpp and serves the daemon until SIGTERM. When the daemon goes away, it
// registers again.
#include <pelmconf.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <poll.h>
#include <sys/signalfd.h>

void describe(pelmconf::plugin& plugin); // of sample-plugin.cpp

namespace {

// Returns the descriptor to watch, or -1 while there is no daemon.
int start(pelmconf::plugin& plugin) {
    try {
        return plugin.start();
    } catch (const pelmconf::error&) {
        return -1;
    }
}

void run(pelmconf::plugin& plugin, pollfd end) {
    for (int delay_ms = 100; end.revents == 0; delay_ms = std::min(2 * delay_ms, 10000)) {
        pollfd watched[] = {end, {start(plugin), POLLIN | POLLRDHUP, 0}};
        if (watched[1].fd >= 0) {
            delay_ms = 100;
            do
                plugin.serve(); // before the first wait, too: requests may have come already
            while (poll(watched, 2, -1) < 0 ||
                   (watched[0].revents == 0 && watched[1].revents == POLLIN));
            plugin.close();
        }
        (void)poll(&end, 1, delay_ms);
    }
}

} // namespace

int main() {
    (void)std::signal(SIGPIPE, SIG_IGN); // a dying daemon must not take this process with it
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigprocmask(SIG_BLOCK, &ending, nullptr); // it is waited for like input
    (void)std::setvbuf(stdout, nullptr, _IOLBF, 0);
    try {
        pelmconf::log_up_to(DBG_ERROR);
        pelmconf::plugin plugin("sample-plugin");
        describe(plugin);
        run(plugin, {signalfd(-1, &ending, SFD_CLOEXEC), POLLIN, 0});
        return 0;
    } catch (const std::exception& why) {
        (void)std::fprintf(stderr, "%s\n", why.what());
        return 1;
    }
}
