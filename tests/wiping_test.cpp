// What may have held a secret is wiped before its memory is given back.
#include "support/plugin.h"

using namespace conf;

namespace {

class Wiping : public PluginTest {
protected:
    Wiping() { start(); }

    // In how much of what a step gives back the secret still is, or its texts alone, where the test
    // itself lets libxml2 parse it. None stays in the buffers.
    template <class Step>
    static int left_by(Step step, int (secret_watch::*count)() const = &secret_watch::all) {
        const secret_watch watch;
        step();
        for (const conf_buffer_t* buf : {context()->recv_buf, context()->send_buf}) {
            const std::string_view all(buf->buf, static_cast<std::size_t>(buf->total));
            EXPECT_EQ(all.find(secret), all.npos);
        }
        return (watch.*count)();
    }

    const std::string element_ = "<x>" + secret + "</x>";
};

} // namespace

TEST_F(Wiping, FindsWhatIsLeft) {
    const auto step = [this] { xmlFreeNodeList(nodes_of(element_)); };
    EXPECT_EQ(left_by(step, &secret_watch::texts), 1);
    EXPECT_GE(left_by(step), 1);
}

TEST_F(Wiping, ReachesFramesThatAWaitDrops) {
    daemon_.will_answer(frame_of(element_) + answer("<result/>"));
    EXPECT_EQ(left_by([] { EXPECT_EQ(econf_plugin_save_deployment(), 0); }), 0);
    daemon_.will_answer(frame_of(element_) + header_of(5000) + secret);
    daemon_.hang_up(20);
    EXPECT_EQ(left_by([] { EXPECT_EQ(econf_plugin_save_deployment(), -1); }), 0);
}
