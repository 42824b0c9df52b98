// What waits in the library behind an answer, where the descriptor does not show it; and the watch that
// event loops wait by.
#include "support/plugin.h"

#include <pelmconf/adapters/watch.h>
#include <pelmconf/pending.h>
#include <poll.h>

using Pending = PluginTest;

TEST_F(Pending, IsWhatRunFindsWithoutReading) {
    const std::string request = frame_of(rpc("kickoff", "", 9));
    const std::pair<std::string, int> cases[] = {
        {"", 0},
        {request.substr(0, 11), 0},
        {request.substr(0, request.size() - 1), 0},
        {request, 1},
        {request + request, 1},
        {std::string(12, 'x'), 0},
        {std::string(13, 'x'), 1},
        {"x" + request, 1},
        {header_of(CONF_MSG_MAX_LENGTH), 0},
        {header_of(CONF_MSG_MAX_LENGTH + 1), 1},
    };
    for (const auto& [behind, is_pending] : traced(cases)) {
        start();
        daemon_.will_answer(answer("<result/>") + behind);
        EXPECT_EQ(econf_plugin_save_deployment(), 0);
        const int held = conf_buffer_length(context()->recv_buf);
        EXPECT_EQ(pelmconf_pending(), is_pending);
        econf_plugin_run();
        EXPECT_EQ(conf_buffer_length(context()->recv_buf) < held, is_pending != 0);
        EXPECT_EQ(pelmconf_pending(), 0);
        econf_plugin_close();
    }
}

TEST_F(Pending, IsNothingWithoutAnActivePlugin) {
    EXPECT_EQ(pelmconf_pending(), 0);
    start();
    daemon_.will_answer(answer("<result/>") + frame_of(rpc("kickoff", "", 9)));
    econf_plugin_deactivate();
    EXPECT_GT(conf_buffer_length(context()->recv_buf), 0);
    EXPECT_EQ(pelmconf_pending(), 0);
}

TEST_F(Pending, IsTheEndOfAnInactivePluginThatNobodyIsToldOf) {
    start(false);
    pelmconf_watch watch{};
    const auto close = [](void* of) { pelmconf_watch_close(static_cast<pelmconf_watch*>(of)); };
    ASSERT_EQ(pelmconf_watch_open(&watch, nullptr, close, &watch), 0);
    daemon_.finish();
    pollfd ready = {watch.fd, POLLIN, 0};
    EXPECT_EQ(poll(&ready, 1, 0), 1);
    pelmconf_watch_step(&watch);
    EXPECT_EQ(context(), nullptr);
}
