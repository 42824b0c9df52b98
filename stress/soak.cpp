#include "scenarios.h"

#include "check.h"
#include "daemon.h"
#include "plugin.h"

#include <cstdio>
#include <random>
#include <string>

namespace stress {
namespace {

std::string change(bool is_deletion) {
    return "<type>config</type><session-id>1</session-id><callback>1</callback><info><priority>1"
           "</priority><path>/c[k=\"x\"]</path><oper-type>" +
           std::string(is_deletion ? "2" : "1") + "</oper-type></info>";
}

constexpr long spare_kib = 128;

struct tally {
    long taken = 0, refused = 0, cut = 0;
};

// One life of the daemon, which may end between a request and its answer.
void live(const service& at, long changes, std::mt19937& random, tally& sum) {
    line plugin(at);
    let_register(plugin);
    for (long i = 0; i < changes; ++i) {
        const bool is_deletion = random() % 7 == 0;
        if (i == changes - 1 && random() % 2 == 0) {
            plugin.send(request_text("publish", change(is_deletion), 1));
            ++sum.cut;
            return;
        }
        const bool is_refused = holds(plugin.request("publish", change(is_deletion)), "refused");
        require(is_refused == is_deletion, "deletions are refused, and nothing else is");
        ++(is_refused ? sum.refused : sum.taken);
    }
}

struct state {
    long kib, descriptors, mappings;
};

state look_at(const plugin_process& plugin, long changes) {
    const state now{plugin.private_kib(), plugin.descriptors(), plugin.mappings()};
    std::printf("after %8ld changes: %ld KiB private, %ld descriptors, %ld mappings\n", changes,
                now.kib, now.descriptors, now.mappings);
    (void)std::fflush(stdout);
    return now;
}

} // namespace

void soak(long changes, long lives) {
    plugin_process plugin;
    std::mt19937 random(1);
    tally sum;
    state early{}, late{};
    for (long life = 0; life < lives; ++life) {
        const service at;
        if (life == lives / 20 + 1)
            early = look_at(plugin, sum.taken + sum.refused);
        live(at, changes / lives, random, sum);
        if (life == lives / 2)
            (void)look_at(plugin, sum.taken + sum.refused);
    }
    {
        const service at;
        line last(at);
        let_register(last);
        late = look_at(plugin, sum.taken + sum.refused);
    }
    const long lived = plugin.seen().lives;
    require(plugin.has_ended_well(), "the plugin has seen nothing that cannot be");
    std::printf("%ld lives of the daemon: %ld changes taken, %ld refused, each answered once; %ld "
                "cut off\n",
                lived, sum.taken, sum.refused, sum.cut);
    require(late.kib - early.kib <= spare_kib || has_foreign_memory, "its memory stays as it is");
    require(late.mappings - early.mappings <= 2 || has_foreign_memory, "so do its mappings");
    require(late.descriptors <= early.descriptors + 1, "and its descriptors");
}

} // namespace stress
