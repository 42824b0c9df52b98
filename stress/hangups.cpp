#include "scenarios.h"

#include "check.h"
#include "daemon.h"
#include "plugin.h"

#include <cstdint>
#include <cstdio>

namespace stress {
namespace {

struct extent {
    std::size_t out, in;
};

extent measure(const service& at) {
    line whole(at);
    live_whole_life(whole);
    return {whole.bytes_out(), whole.bytes_in()};
}

void hang_up(const service& at, std::size_t most_out, std::size_t most_in) {
    line cut(at, most_out, most_in);
    bool is_cut = false;
    try {
        live_whole_life(cut);
    } catch (const hung_up&) {
        is_cut = true;
    }
    require(is_cut, "the line is cut within a life");
}

} // namespace

void hangups(long every, long first) {
    plugin_process plugin;
    long points = 0;
    {
        const service at;
        const extent whole = measure(at);
        const std::size_t step = static_cast<std::size_t>(every);
        for (std::size_t k = static_cast<std::size_t>(first) % step; k < whole.out;
             k += step, ++points)
            hang_up(at, k, SIZE_MAX);
        for (std::size_t k = static_cast<std::size_t>(first) % step; k < whole.in;
             k += step, ++points)
            hang_up(at, SIZE_MAX, k);
        (void)measure(at); // as if nothing had been
        std::printf("hang-ups: %ld of %zu points\n", points, whole.out + whole.in);
    }
    require(plugin.has_ended_well(), "the plugin has seen nothing that cannot be");
}

} // namespace stress
