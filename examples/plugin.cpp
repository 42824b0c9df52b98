// A plugin that serves network interfaces: plugin.c, in C++.
//
// It takes changes of /interfaces/interface and of the addresses below it, tells how the interfaces are,
// and serves one operation. It outlives the daemon: when that goes away, it registers again.
#include <pelmconf.hpp>

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <poll.h>
#include <sys/signalfd.h>

namespace {

constexpr int first_delay_ms = 100;
constexpr int longest_delay_ms = 10000;

// What the plugin knows, and its callables, which capture it.
class interfaces {
public:
    interfaces() {
        plugin_.on_change("/interfaces/interface", 10, [this](const auto& change) { take(change); })
            .on_change("/interfaces/interface/address", 20, check_address)
            .on_status("/interfaces/state",
                       [this] { return pelmconf::tree("state").add("changes", changes_); })
            .on_operation("/interfaces/reset",
                          [this] { return pelmconf::tree("was", std::exchange(changes_, 0)); })
            .on_kick_off([] { std::puts("kick-off: everything is set up anew"); });
    }
    pelmconf::plugin& plugin() { return plugin_; }

private:
    // The daemon says what happened to a path, but not the data: that is read from it, old and new.
    void take(const pelmconf::change& change) {
        const std::string before = change.before().leaf("mtu").value_or("none");
        const std::string after = change.after().leaf("mtu").value_or("none");
        if (after != "none" && std::strtol(after.c_str(), nullptr, 10) < 68)
            throw pelmconf::error(EINVAL, "The MTU must be 68 at least.");
        std::printf("%s: mtu %s -> %s%s\n", change.path, before.c_str(), after.c_str(),
                    change.rolled_back() ? " (taken back)" : "");
        changes_++;
    }
    // Comes after take(), for its priority is the greater number.
    static void check_address(const pelmconf::change& change) {
        in_addr parsed{};
        if (change.removed())
            return;
        const std::string address = change.after().text().value_or("");
        if (inet_pton(AF_INET, address.c_str(), &parsed) != 1)
            throw pelmconf::error(EINVAL, "That is no address.");
    }

    int changes_ = 0; // taken since the last reset
    pelmconf::plugin plugin_{"interfaces"};
};

// Returns the descriptor to watch, or -1 while there is no daemon.
int start(pelmconf::plugin& plugin) {
    try {
        return plugin.start();
    } catch (const pelmconf::error&) {
        return -1;
    }
}

// Returns when the daemon has gone or this process is to end.
void serve(pelmconf::plugin& plugin, pollfd end, pollfd daemon) {
    pollfd watched[] = {end, daemon};
    do
        plugin.serve(); // before the first wait, too: requests may have come with an answer
    while (poll(watched, 2, -1) < 0 ||
           (watched[0].revents == 0 && (watched[1].revents & ~POLLIN) == 0));
}

void run(pelmconf::plugin& plugin, pollfd end) {
    for (int delay_ms = first_delay_ms; end.revents == 0;
         delay_ms = std::min(2 * delay_ms, longest_delay_ms)) {
        if (const int sock = start(plugin); sock >= 0) {
            delay_ms = first_delay_ms;
            serve(plugin, end, {sock, POLLIN | POLLRDHUP, 0});
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
        interfaces served;
        run(served.plugin(), {signalfd(-1, &ending, SFD_CLOEXEC), POLLIN, 0});
        return 0;
    } catch (const std::exception& why) {
        (void)std::fprintf(stderr, "%s\n", why.what());
        return 1;
    }
}
