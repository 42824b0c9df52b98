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
    const std::function<int(xmlNode*)> pushes_[2] = {
        [](xmlNode* data) { return econf_plugin_push("/a", data); },
        [](xmlNode* data) { return econf_plugin_config_deployment("/a", 0, data); }};
};

} // namespace

TEST_F(Wiping, FindsWhatIsLeft) {
    const auto step = [this] { xmlFreeNodeList(nodes_of(element_)); };
    EXPECT_EQ(left_by(step, &secret_watch::texts), 1);
    EXPECT_GE(left_by(step), 1);
}

TEST_F(Wiping, ReachesRequestsThatAreServedOrNot) {
    const std::string params[] = {
        "<type>config</type><callback>1</callback><info>" + element_ + "</info>",
        "<type>operate</type><callback>4</callback><info>" + element_ + "</info>", element_};
    for (const std::string& each : traced(params)) {
        daemon_.send(frame_of(rpc("publish", each, 9)));
        EXPECT_EQ(left_by(econf_plugin_run), 0);
        EXPECT_NE(daemon_.received(), "");
    }
    daemon_.send(frame_of(element_));
    EXPECT_EQ(left_by(econf_plugin_run), 0);
}

TEST_F(Wiping, ReachesFramesThatAWaitDrops) {
    daemon_.will_answer(frame_of(element_) + answer("<result/>"));
    EXPECT_EQ(left_by([] { EXPECT_EQ(econf_plugin_save_deployment(), 0); }), 0);
    daemon_.will_answer(frame_of(element_) + header_of(5000) + secret);
    daemon_.hang_up(20);
    EXPECT_EQ(left_by([] { EXPECT_EQ(econf_plugin_save_deployment(), -1); }), 0);
}

TEST_F(Wiping, ReachesTheAnswerToAPull) {
    for (const std::string outcome : {"result", "error", "other"}) {
        const std::string data = "<data>" + element_ + "</data>";
        daemon_.will_answer(answer("<" + outcome + ">" + data + "</" + outcome + ">"));
        unique_node_list found;
        EXPECT_EQ(left_by([&] { (void)econf_plugin_pull(0, "/a", found.out()); }), 0) << outcome;
    }
}

TEST_F(Wiping, ReachesAValueThatCannotBeWrapped) {
    pelmd_plugin_callback_t hooks{};
    hooks.conf_plugin_pull = callback;
    EXPECT_EQ(conf_plugin_init_api(&hooks), 0);
    callbacks.nodes = element_;
    callbacks.is_document = true; // so that they are copied, when there is an element for them
    std::optional<fault> no_memory;
    char path[] = "/a";
    conf_val_t val{};
    const auto get_value = [&] { EXPECT_EQ(conf_plg_get_value(nullptr, path, &val), -1); };
    for (const int skip : {0, 2}) {
        callbacks.act = [&] { return no_memory.emplace(call::xml, ENOMEM, skip), 0; };
        EXPECT_EQ(left_by(get_value, &secret_watch::texts), 0);
    }
    EXPECT_EQ(log(), "Create <data> node failed.; Add <data> children node failed.");
}

TEST_F(Wiping, ReachesAnswersThatOnlySayWhetherItWorked) {
    for (const std::string outcome : {"result", "error", "other"})
        for (const auto& request : traced(std::vector<std::function<void()>>{
                 econf_plugin_deactivate, [] { (void)econf_plugin_save_deployment(); }})) {
            context()->bit_activate = 1;
            daemon_.will_answer(answer("<" + outcome + ">" + element_ + "</" + outcome + ">"));
            EXPECT_EQ(left_by(request), 0) << outcome;
        }
}

TEST_F(Wiping, ReachesPushedDataWithItsText) {
    const unique_node data{nodes_of(element_)};
    for (const auto& push : pushes_)
        for (const std::string& bytes : {answer("<result/>"), answer("<error/>"), ""s}) {
            const secret_watch watch;
            daemon_.will_answer(bytes);
            (void)push(data.get());
            EXPECT_EQ(watch.all(), 0);
        }
}
