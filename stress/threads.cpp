#include "scenarios.h"

#include "check.h"
#include "conf_api.h"
#include "conf_plugin.h"
#include "support/handle.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <sys/socket.h>
#include <thread>
#include <vector>

namespace stress {
namespace {

constexpr int workers = 6;

// Takes the notifications until all are sent and none is left. @return how many came
long drain(int sock, const std::atomic<bool>& is_over) {
    char bytes[4096];
    long count = 0;
    for (bool has_some = true, was_over = false; has_some || !was_over;) {
        was_over = is_over; // before the look, behind which the last may come
        has_some = recv(sock, bytes, sizeof bytes, MSG_DONTWAIT) > 0;
        count += has_some ? 1 : 0;
    }
    return count;
}

// @return how many notifications went out
long work(int worker, long rounds) {
    char name[] = "n", text[] = "<n/>";
    long sent = 0;
    for (long i = 0; i < rounds; ++i) {
        xmlNode* const event = xmlNewNode(nullptr, BAD_CAST "event");
        sent += econf_notify(name, event) == 0;
        xmlFreeNode(event);
        sent += conf_notify(name, text) == 0;
        sent += conf_notify_nonblock(name, text) == 0;
        _conf_write_log(DBG_ERROR, "line %ld of %d", i, worker);
        std::free(plugin_path_data2std("/a:b/a:c[k='x']"));
        std::free(plugin_path_schema2std("/a:b/a:c"));
        std::free(plugin_path_std2db("/a:b/c"));
    }
    return sent;
}

} // namespace

void threads(long rounds) {
    const conf::unique_fd notifier(conf_plugin_notifier_enable());
    require(bool(notifier) && econf_plugin_config_debug(DBG_ALL, 1) == 0,
            "notifications and the log are on");
    std::atomic<bool> is_over = false;
    std::atomic<long> sent = 0;
    long came = 0;
    std::thread reader([&] { came = drain(notifier.get(), is_over); });
    std::vector<std::thread> writers;
    writers.reserve(workers);
    for (int worker = 0; worker < workers; ++worker)
        writers.emplace_back([&, worker] { sent += work(worker, rounds); });
    for (std::thread& each : writers)
        each.join();
    is_over = true;
    reader.join();
    std::printf("threads: %d, %ld notifications sent, %ld came\n", workers, sent.load(), came);
    require(came == sent, "each notification that was sent comes");
}

} // namespace stress
