// A registered plugin, and the daemon's end of its connection in the same thread.
#pragma once

#include "support/test.h"

#include "conf_api.h"
#include "conf_plugin.h"
#include "support/xml.h"

// The id of the next request that the plugin sends.
int next_id();

// A request with what stands in "params", and an answer; and the same as a frame.
std::string rpc(const std::string& method, const std::string& params, int id = next_id());
std::string reply(const std::string& outcome, int id = next_id());
inline std::string answer(const std::string& outcome, int id = next_id()) {
    return frame_of(reply(outcome, id));
}

// New nodes for what stands in a text, and the text of a list of nodes.
xmlNode* nodes_of(const std::string& text);
std::string text_of(xmlNode* first);

// The daemon: takes its turn whenever the plugin is about to wait. It then reads whatever has come,
// and sends its answer once a whole frame is there.
class daemon_side {
public:
    daemon_side();
    ~daemon_side();

    void will_answer(std::string bytes) { answer_ = std::move(bytes); }
    // As much as the socket takes now, the rest turn by turn.
    void send(const std::string& bytes);
    void fall_asleep() { is_awake_ = false; }
    void wake_up() { is_awake_ = true; }
    // No more will be sent.
    void finish() { (void)shutdown(connection_.get(), SHUT_WR); }
    // Once the plugin is connected, before its next call of the system, or a later one.
    void hang_up(int calls = 1) { calls_left_ = calls; }

    // Whether a part of a frame came, and not yet the rest.
    bool is_amid_a_frame() {
        read();
        return !input_.empty();
    }

    // The bodies of the frames that came since the last time, one behind the other.
    std::string received();

private:
    void on_call(call which);
    void read();

    conf::unique_fd listener_{conf_plugin_service_enable()};
    conf::unique_fd connection_;
    std::string input_, output_, received_, answer_;
    bool is_awake_ = true;
    int calls_left_ = 0;
};

// What callbacks do, of a plugin or of the daemon: they note what they are given, as "call 1 /a out;",
// hand nodes back, and act.
struct callback_script {
    std::string calls;
    std::string nodes;
    bool is_document = false; // then the first node is taken out of one that was parsed
    conf::secret_doc document{nullptr};
    std::function<int()> act = [] { return 0; };
};
extern callback_script callbacks;

inline std::string shown(long long number) { return std::to_string(number); }
inline std::string shown(xmlNode* first) { return text_of(first); }
std::string shown(const char* text);
std::string shown(xmlNode** out);

// A callback of any type.
template <class Result, class... Arguments> Result callback(Arguments... arguments) {
    callbacks.calls += (std::string("call") + ... + (" " + shown(arguments))) + ";";
    return static_cast<Result>(callbacks.act());
}

// A plugin's callbacks, one of each kind. Slots: 0 kick-off, 1 configuration, 2 empty, 3 status,
// 4 operation.
extern econf_plugin_subpub_info_t one_of_each;

// The plugin log takes everything, and all is gone again at the end.
class PluginTest : public testing::Test {
protected:
    PluginTest();
    ~PluginTest() override;

    // Registers "ntp" with one_of_each and makes it active. What is sent and logged meanwhile is
    // dropped.
    void start(bool is_active = true);

    static conf_plugin_context_t* context() { return get_plugin_context(); }

    // The plugin log since the last call, without what is for information and the missing profile.
    // Errors stand by their words alone, and an address is P.
    static std::string log();

    descriptor_watch watch_;
    mapping_watch mappings_;
    daemon_side daemon_;
};
