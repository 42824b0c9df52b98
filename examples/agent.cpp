// An agent: agent.c, in C++. It opens a session with the daemon, asks what the daemon can do, subscribes to
// notifications, and prints every element that comes, until the daemon hangs up.
#include <pelmconf.hpp>

#include <cstdio>

int main() {
    (void)std::setvbuf(stdout, nullptr, _IOLBF, 0);
    try {
        pelmconf::agent agent = pelmconf::agent::connect();
        agent.create_session(1);
        agent.get_capability(2);
        agent.create_subscription(3);
        agent.send();
        while (const auto answer = agent.receive())
            std::printf("%s\n", answer->body.c_str());
        return 0;
    } catch (const pelmconf::error& why) {
        (void)std::fprintf(stderr, "%s\n", why.what());
        return 1;
    }
}
