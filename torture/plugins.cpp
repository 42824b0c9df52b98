// Plugins: of a process of their own, of the older API, and inside the daemon.
#include "scenarios.h"

#include "support/plugin.h"

#include <memory>

namespace torture {
namespace {

// The plugin's own code, which never fails.
template <class Result, class... Arguments> Result own_code(Arguments... arguments) {
    const exposure off(false);
    return callback<Result>(arguments...);
}

char name[] = "ntp";
char path[] = "/c";
econf_config_cb_info_t configs[] = {{path, 1, own_code}, {}};
econf_status_cb_info_t statuses[] = {{path, own_code}, {}};
econf_operate_cb_info_t operations[] = {{path, own_code}, {}};
econf_plugin_subpub_info_t tables{configs, statuses, operations, own_code};

config_callback_t older_configs[] = {{path, 1, own_code}, {}};
status_callback_t older_statuses[] = {{path, own_code}, {}};
rpc_callback_t older_operations[] = {{path, own_code}, {}};
conf_plugin_info_t older_tables{older_configs, older_statuses, older_operations, own_code, nullptr};

// A plugin's process, and the daemon.
struct process {
    explicit process(const std::string& attribute = "") : root_attribute(attribute) {
        callbacks = {};
    }
    process(const process&) = delete;
    process& operator=(const process&) = delete;
    ~process() {
        if (get_plugin_context() != nullptr)
            econf_plugin_close();
        std::free(get_plugin_hooks());
        del_plugin_from_hash();
        conf_hash_destroy(std::exchange(g_plugin_hash, nullptr)); // no process begins with one
        callbacks = {};
    }

    std::string framed(std::string body) const {
        return frame_of(body.insert(body.find('>'), root_attribute));
    }

    // What the daemon sends: an answer to the request that comes next, or a request.
    void will_answer(const std::string& result, int id = next_id()) {
        daemon.will_answer(framed(reply(result, id)));
    }
    void send(const std::string& method, const std::string& params) {
        daemon.send(framed(rpc(method, params, 9)));
    }

    // The requests and answers that the daemon got. Ids of requests depend on what went before.
    std::string sent() {
        static constexpr std::string_view end = "</id></rpc>";
        std::string bodies = daemon.received();
        for (std::size_t at = 0; (at = bodies.find(end, at)) != bodies.npos; at += end.size())
            while (bodies[at - 1] != '>')
                bodies.erase(--at, 1);
        return bodies;
    }

    // What came of a call. When part of its frame is out, no other can be sent.
    outcome told(int result) {
        std::string value = result >= 0 ? "done" : "failed";
        if (out != nullptr)
            value += " with " + text_of(out);
        xmlFreeNodeList(std::exchange(out, nullptr));
        return {value, sent(), result < 0 && daemon.is_amid_a_frame()};
    }

    const std::string root_attribute; // of each message of the daemon's
    daemon_side daemon;
    xmlNode* out = nullptr; // what a call hands back
    const conf::unique_node_list data{nodes_of("<x k='v'>" + secret + "</x>")};
};

using shared_process = std::shared_ptr<process>;

// A call that the daemon answers.
template <class Call>
step ask(const char* call_name, const shared_process& at, const std::string& answered, Call call) {
    return {call_name, [=] {
                at->will_answer(answered);
                return at->told(tried(call));
            }};
}

// The first call, without which there is no other.
template <class Call> step begin(const shared_process& at, Call call) {
    return {"register", [=] {
                at->will_answer("<result/>", 1);
                outcome came = at->told(tried(call));
                came.is_over = came.has_failed();
                return came;
            }};
}

step deactivate(const shared_process& at) {
    return {"deactivate", [=] {
                const bool was_active = get_plugin_context()->bit_activate != 0;
                at->will_answer("<result/>");
                tried([] { return econf_plugin_deactivate(), 0; });
                return at->told(was_active && !get_plugin_context()->bit_activate ? 0 : -1);
            }};
}

step end(const shared_process& at) {
    const auto close = [] { return econf_plugin_close(), 0; };
    return {"close", [=] { return at->told(tried(close)); }, true};
}

// A request of the daemon's, and what its callback does and hands back.
struct served {
    const char* kind;
    std::string method, params;
    std::string nodes = "";
    bool is_document = false; // that the nodes are part of
    std::function<int()> act = [] { return 0; };
};

template <class Run> step serve(const shared_process& at, const served& what, Run run) {
    return {what.kind, [=]() -> outcome {
                callbacks.calls.clear();
                callbacks.nodes = what.nodes;
                callbacks.is_document = what.is_document;
                callbacks.act = what.act;
                at->daemon.will_answer("");
                at->send(what.method, what.params);
                tried(run);
                tried(run); // as when the descriptor is readable still
                outcome came{callbacks.calls, at->sent(), at->daemon.is_amid_a_frame()};
                if (came.value.empty())
                    came.value = came.sent.empty() ? "failed" : "not called";
                return came;
            }};
}

const std::string ok = "<result/>";
const std::string text_node = "<v>" + secret + "</v>"; // for nobody to find again
const std::string found = "<result><data>" + text_node + "t</data></result>";
const std::string found_in_namespace = "<result><data xmlns='u'>" + text_node + "</data></result>";
const std::string position = R"(<result><prev>/a[b="c"]</prev><next>/a[b="d"]</next></result>)";

const std::string config = "<type>config</type><callback>1</callback><info><priority>1</priority>"
                           R"(<oper-type>16385</oper-type><path>/c[k="x"]</path>)" +
                           text_node + "</info>";
const std::string status = "<callback>2</callback><path>/c</path><filter>f</filter>";
const std::string operate =
    "<type>operate</type><callback>3</callback><info>" + text_node + "</info>";

// Asks the daemon from inside a callback. When it does not get the whole of that, nothing can follow.
int pull_and_accept(process* at) {
    at->will_answer(found);
    xmlNode* old = nullptr;
    const int result = tried([&] { return econf_plugin_pull(1, path, &old); });
    at->daemon.will_answer("");
    callbacks.calls += text("pull %d ", result) + text_of(old) + ";";
    xmlFreeNodeList(old);
    if (at->daemon.is_amid_a_frame())
        tried([] { return econf_plugin_close(), 0; });
    return 0;
}

int refuse() {
    tried([] { return econf_plugin_error(5, "no <%s"), 0; });
    return -1;
}

// The two calls that all begins with.
std::vector<step> started(const shared_process& at) {
    return {
        begin(at, [] { return econf_plugin_init(name, &tables); }),
        ask("activate", at, "<result/>", [] { return econf_plugin_activate(ACTIVATE_WITH_CFGR); })};
}

void add(std::vector<step>& steps, const std::vector<step>& more) {
    steps.insert(steps.end(), more.begin(), more.end());
}

std::vector<step> services(const shared_process& at) {
    process* const its = at.get();
    const auto run = [] { return econf_plugin_run(), 0; };
    const auto accept = [its] { return pull_and_accept(its); };
    const auto fail = [] { return 3; };
    return {
        serve(at, {"config", "publish", config, "", false, accept}, run),
        serve(at, {"refused", "publish", config, "", false, refuse}, run),
        serve(at, {"failing", "publish", config, "", false, fail}, run),
        serve(at, {"status", "subscribe", status, "<o>t</o>", true}, run),
        serve(at, {"failing status", "subscribe", status, "<o>t</o>", false, fail}, run),
        serve(at, {"operate", "publish", operate, "<o>t</o>u", true}, run),
        serve(at, {"failing operate", "publish", operate, "<o>t</o>", false, fail}, run),
        serve(at, {"operate without output", "publish", operate}, run),
        serve(at, {"unknown", "x", ""}, run),
        serve(at, {"kick-off", "kickoff", ""}, run),
    };
}

// @param refusal  what the daemon answers to all of them instead
std::vector<step> requests(const shared_process& at, const std::string& refusal = "") {
    process* const its = at.get();
    const auto or_refused = [&](const std::string& result) {
        return refusal.empty() ? result : refusal;
    };
    const auto pull = [its] { return econf_plugin_pull(0, path, &its->out); };
    const auto pull_old = [its] { return econf_plugin_pull(1, path, &its->out); };
    const auto locate = [its] { return econf_plugin_locate(0, path, &its->out); };
    const auto push = [its] { return econf_plugin_push(path, its->data.get()); };
    const auto deploy = [its] { return econf_plugin_config_deployment(path, 0, its->data.get()); };
    const auto copy = [] { return econf_plugin_copy_running_to_deployment(1); };
    return {
        ask("pull", at, or_refused(found), pull),
        ask("pull by copy", at, or_refused(found_in_namespace), pull_old),
        ask("locate", at, or_refused(position), locate),
        ask("push", at, or_refused(ok), push),
        ask("deploy", at, or_refused(ok), deploy),
        ask("save", at, or_refused(ok), econf_plugin_save_deployment),
        ask("copy", at, or_refused(ok), copy),
    };
}

std::vector<step> life(const shared_process& at) {
    std::vector<step> steps = started(at);
    add(steps, services(at));
    add(steps, requests(at));
    add(steps, {deactivate(at), end(at)});
    return steps;
}

} // namespace

std::vector<step> plugin() { return life(std::make_shared<process>()); }

// The namespace of that attribute belongs to the document.
std::vector<step> copied_messages() { return life(std::make_shared<process>(" xml:lang='en'")); }

std::vector<step> refusing_daemon() {
    const auto at = std::make_shared<process>();
    std::vector<step> steps = started(at);
    add(steps, requests(at, "<error><code>5</code><message>no</message></error>"));
    add(steps, {deactivate(at), end(at)});
    return steps;
}

std::vector<step> large_messages() {
    static const std::string element = "<e a='1'>" + std::string(12000, 'x') + "</e>";
    static const std::string content = element + element + element;
    const auto at = std::make_shared<process>();
    process* const its = at.get();
    const auto data = std::make_shared<conf::unique_node_list>(nodes_of(content));
    const auto pull = [its] { return econf_plugin_pull(0, path, &its->out); };
    const auto push = [data] { return econf_plugin_push(path, data->get()); };
    const auto run = [] { return econf_plugin_run(), 0; };
    const std::string info = "<info>" + content + "</info>";
    std::vector<step> steps = started(at);
    add(steps,
        {ask("pull", at, "<result><data>" + content + "</data></result>", pull),
         ask("push", at, ok, push),
         serve(at,
               {"operate", "publish", "<type>operate</type><callback>3</callback>" + info, content},
               run),
         end(at)});
    return steps;
}

std::vector<step> older_plugin() {
    const auto at = std::make_shared<process>();
    process* const its = at.get();
    const auto run = [] { return conf_run(nullptr, 0); };
    const auto loop = [] { return conf_run(nullptr, 1); };
    const auto close = [] { return tried([] { return conf_plugin_close(nullptr); }); };
    const auto get_value = [its](auto get) {
        conf_val_t val{};
        const int result = get(nullptr, path, &val);
        its->out = val.data;
        return val.data != nullptr ? result : -1; // a value that cannot be read counts as none
    };
    return {
        begin(at, [] { return conf_plugin_init(name, &older_tables) != nullptr ? 0 : -1; }),
        ask("activate", at, ok, [] { return conf_start_session(nullptr, ACTIVATE_WITH_NONE); }),
        serve(at, {"config", "publish", config}, run),
        serve(at, {"status", "subscribe", status, "<o>t</o>"}, run),
        serve(at, {"operate", "publish", operate, "<data><o>t</o></data>"}, run),
        ask("value", at, found, [=] { return get_value(conf_plg_get_value); }),
        ask("old value", at, found, [=] { return get_value(conf_plg_get_old_value); }),
        ask("set value", at, ok,
            [its] {
                conf_val_t val{its->data.get()};
                return conf_plg_set_value(nullptr, 0, path, &val);
            }),
        ask("config data", at, found,
            [its] { return (its->out = conf_get_config(path)) != nullptr ? 0 : -1; }),
        serve(at, {"loop", "kickoff", "", "", false, close}, loop),
        end(at),
    };
}

std::vector<step> local_plugin() {
    const auto at = std::make_shared<process>();
    process* const its = at.get();
    static pelmd_plugin_callback_t hooks{own_code, own_code, own_code, own_code,
                                         own_code, own_code, own_code, own_code};
    // The value comes from a document of the daemon's, and so by way of a copy.
    const auto get_value = [its] {
        callbacks.nodes = "<abc>abc</abc><x>abc</x>";
        callbacks.is_document = true;
        conf_val_t val{};
        const int result = tried([&] { return conf_plg_get_value(nullptr, path, &val); });
        its->out = val.data;
        outcome came = its->told(result);
        came.value += "; " + text_of(xmlDocGetRootElement(callbacks.document.get()));
        callbacks = {};
        return came;
    };
    return {
        {"inject",
         [at] {
             outcome came = at->told(tried([] { return conf_plugin_init_api(&hooks); }));
             came.is_over = came.has_failed();
             return came;
         }},
        ask("pull", at, "", [its] { return econf_plugin_pull(0, path, &its->out); }),
        ask("push", at, "", [its] { return econf_plugin_push(path, its->data.get()); }),
        {"value", get_value},
    };
}

} // namespace torture
