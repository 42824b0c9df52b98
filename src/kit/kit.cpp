#include "kit.h"

#include "model/operation.h"
#include "model/problem.h"

#include <libxml/xmlerror.h>

namespace pelmtest {

using namespace pelmsim;

namespace {

constexpr int test_session = 1; // the session that all requests are made in

// Keeps the parser's reports of a test's own XML off the standard error output.
class no_parser_reports {
public:
    no_parser_reports() {
        xmlSetStructuredErrorFunc(nullptr, [](void*, auto*) {});
    }
    no_parser_reports(const no_parser_reports&) = delete;
    no_parser_reports& operator=(const no_parser_reports&) = delete;
    ~no_parser_reports() { xmlSetStructuredErrorFunc(standing_context_, standing_); }

private:
    const xmlStructuredErrorFunc standing_ = xmlStructuredError;
    void* const standing_context_ = xmlStructuredErrorContext;
};

unique_nodes parse(const std::string& xml) {
    const no_parser_reports meanwhile;
    return parse_nodes(xml);
}

// A path as it arrives at the daemon: entity references in it are read.
data_path announced(const char* path) {
    const unique_node entry = new_element("entry");
    (void)xmlNewChild(entry.get(), nullptr, BAD_CAST "path", BAD_CAST path);
    return data_path(child_text(parse(compact_node(entry.get())).get(), "path"));
}

template <class Callback> econf_subpub_cb_t as_slot(Callback callback) {
    return reinterpret_cast<econf_subpub_cb_t>(reinterpret_cast<void (*)()>(callback));
}

int priority_of(const econf_config_cb_info_t& entry) { return entry.priority; }
template <class Entry> int priority_of(const Entry&) { return 0; }

result unheard(std::string why) { return {PELMTEST_UNHEARD, 0, std::move(why)}; }

unique_node publish_params(const char* type, u32_t callback, unique_node info) {
    unique_node params = new_element("params");
    add_element(params.get(), "type", type);
    add_element(params.get(), "session-id", std::to_string(test_session));
    attach(params.get(), std::move(info));
    add_element(params.get(), "callback", std::to_string(callback));
    return params;
}

result read_answer(unique_node answer) {
    xmlNode* good = nullptr;
    xmlNode* error = nullptr;
    if (plugin_parse_reply(answer.get(), &good, &error) < 0)
        return {PELMTEST_NO_ANSWER, 0, "the answer has neither a result nor an error alone"};
    if (error != nullptr) {
        const char* const text = plugin_get_reply_errmsg(error);
        return {PELMTEST_ERROR, plugin_get_reply_errcode(error), text == nullptr ? "" : text};
    }
    return {.answer = std::move(answer), .data = good->children};
}

} // namespace

std::string describe(const result& which) {
    const std::string why = which.text.empty() ? "" : " (" + which.text + ")";
    switch (which.outcome) {
    case PELMTEST_OK:
        return "ok";
    case PELMTEST_ERROR:
        return "error " + std::to_string(which.code) + why;
    case PELMTEST_UNHEARD:
        return "unheard" + why;
    case PELMTEST_NO_ANSWER:
        return "no answer" + why;
    default:
        return "mistake" + why;
    }
}

kit::kit(api version, const econf_plugin_subpub_info_t& tables)
    : version_(version), callbacks_{as_slot(tables.kick_off)} {
    enter(serves::config, tables.config_cbs);
    enter(serves::status, tables.status_cbs);
    enter(serves::operate, tables.operate_cbs);
    asked_.install_hooks();
    seat_ = std::make_unique<seat>(version_, callbacks_);
}

template <class Entry> void kit::enter(serves kind, const Entry* entries) {
    for (; entries != nullptr && entries->path != nullptr; ++entries) {
        registrations_.push_back({kind, announced(entries->path), priority_of(*entries),
                                  static_cast<u32_t>(callbacks_.size())});
        callbacks_.push_back(as_slot(entries->callback));
    }
}

// A child that was forked is another process to the library.
seat& kit::here() {
    if (!seat_->is_here()) {
        asked_.install_hooks();
        seat_ = std::make_unique<seat>(version_, callbacks_);
    }
    return *seat_;
}

std::vector<subscriber> kit::subscribers() { return {{here().is_active(), registrations_}}; }

// The one whose path is nearest to the given one, at it or above.
const registration* kit::server_of(serves kind, const data_path& path) {
    const registration* best = nullptr;
    for (const registration& at : registrations_)
        if (here().is_active() && at.kind == kind && at.path.covers(path) &&
            (best == nullptr || at.path.steps.size() > best->path.steps.size()))
            best = &at;
    return best;
}

void kit::note_notifications() {
    for (std::string& text : here().take_notifications())
        asked_.remember(PELMTEST_NOTIFIED, std::move(text));
}

void kit::forget() {
    note_notifications();
    asked_.forget();
}

void kit::give(const data_path& path, const std::string& xml) {
    const unique_nodes data = parse(xml);
    tree changed = asked_.trees.current;
    changed.set(path, copy_nodes(data.get()));
    asked_.trees.keys.learn(path);
    asked_.trees.keys.learn(changed);
    asked_.trees.old = changed;
    asked_.trees.current = std::move(changed);
}

result kit::ask(const char* method, unique_node params) {
    unique_node answer = here().ask(method, std::move(params));
    if (answer == nullptr)
        return {PELMTEST_NO_ANSWER, 0, "the plugin was closed"};
    return read_answer(std::move(answer));
}

result kit::tell(const publication& what) {
    unique_node info = new_element("info");
    add_element(info.get(), "oper-type", std::to_string(what.oper));
    add_element(info.get(), "more-flag", what.more ? "1" : "0");
    add_element(info.get(), "priority", std::to_string(what.at.priority));
    add_element(info.get(), "path", what.path.text());
    return ask("publish", publish_params("config", what.at.callback, std::move(info)));
}

// The last outcome that was not good.
result kit::tell_all(const plan& all, bool until_refused, std::size_t& told) {
    result total;
    for (told = 0; told < all.size(); ++told) {
        const publication& each = all[told];
        result its = here().is_active()
                         ? tell(each)
                         : result{PELMTEST_NO_ANSWER, 0, "the plugin is not active any more"};
        asked_.remember(PELMTEST_TOLD,
                        each.path.text() + " " + oper_text(each.oper) + ": " + describe(its));
        if (its.outcome == PELMTEST_OK)
            continue;
        total = std::move(its);
        if (until_refused)
            break;
    }
    return total;
}

result kit::change(const std::function<void(tree&)>& edit) {
    store& trees = asked_.trees;
    tree changed = trees.current;
    edit(changed);
    if (changed.text() == trees.current.text())
        return unheard("nothing has changed");
    trees.keys.learn(changed);
    const plan all = plan_changes(subscribers(), trees.current, changed, trees.keys);
    tree standing_old = std::exchange(trees.old, trees.current);
    trees.current = std::move(changed);
    if (all.empty())
        return unheard("no callback is concerned");
    std::size_t told = 0;
    result total = tell_all(all, true, told);
    if (total.outcome == PELMTEST_OK)
        return total;
    // From here on the tree that stands is the current one again, for callbacks that pull.
    std::swap(trees.current, trees.old);
    std::size_t taken_back = 0;
    (void)tell_all(plan_back(all, told), false, taken_back);
    trees.old = std::move(standing_old);
    return total;
}

result kit::set(const data_path& path, const std::string& xml) {
    const unique_nodes data = parse(xml);
    asked_.trees.keys.learn(path);
    return change([&](tree& target) { target.set(path, copy_nodes(data.get())); });
}

result kit::add(const data_path& path, const std::string& xml) {
    if (!asked_.trees.current.select(path).empty())
        throw problem("There is something at " + path.text() + " already.");
    return set(path, xml);
}

result kit::remove(const data_path& path) {
    return change([&](tree& target) {
        if (!target.remove(path))
            throw problem("There is nothing at " + path.text() + ".");
    });
}

result kit::recover(int bits) {
    store& trees = asked_.trees;
    tree standing_old = std::exchange(trees.old, tree()); // all of it is new to the plugin
    plan all = plan_changes(subscribers(), trees.old, trees.current, trees.keys);
    for (publication& each : all)
        each.oper |= bits;
    std::size_t told = 0;
    result total = tell_all(all, false, told);
    trees.old = std::move(standing_old);
    return all.empty() ? unheard("no callback is concerned") : std::move(total);
}

result kit::publish(const data_path& path, int oper) {
    const plan all = plan_bits(subscribers(), path, oper);
    if (all.empty())
        return unheard("no callback subscribes to " + path.text() + " or to what it lies in");
    std::size_t told = 0;
    return tell_all(all, false, told);
}

result kit::status(const data_path& path, const std::string& filter) {
    const registration* const at = server_of(serves::status, path);
    if (at == nullptr)
        return unheard("no callback publishes the status of " + path.text());
    unique_node params = new_element("params");
    add_element(params.get(), "path", path.text());
    add_element(params.get(), "session-id", std::to_string(test_session));
    if (!filter.empty())
        add_element(params.get(), "filter", filter);
    add_element(params.get(), "callback", std::to_string(at->callback));
    result its = ask("subscribe", std::move(params));
    if (its.data != nullptr) {
        const xmlNode* const data = find_child(its.data->parent, "data");
        its.data = data == nullptr ? nullptr : data->children;
    }
    return its;
}

result kit::operate(const data_path& path, const std::string& input) {
    const registration* const at = server_of(serves::operate, path);
    if (at == nullptr)
        return unheard("no callback serves the operation " + path.text());
    unique_node info = new_element("info");
    attach(info.get(), parse(input));
    return ask("publish", publish_params("operate", at->callback, std::move(info)));
}

result kit::kick_off() {
    if (!here().is_active())
        return unheard("the plugin is not active");
    return ask("kickoff", new_element("params"));
}

} // namespace pelmtest
