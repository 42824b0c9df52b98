#include "daemon/publisher.h"

#include "model/operation.h"

#include <algorithm>
#include <conf_api.h>

namespace pelmsim {
namespace {

constexpr int console_session = 1; // the session that all requests are made in

outcome nobody(const std::string& what, const data_path& path) {
    return outcome::unheard("no active plugin " + what + " " + path.text());
}

unique_node publish_params(const char* type, u32_t callback, unique_node info) {
    unique_node params = new_element("params");
    add_element(params.get(), "type", type);
    add_element(params.get(), "session-id", std::to_string(console_session));
    attach(params.get(), std::move(info));
    add_element(params.get(), "callback", std::to_string(callback));
    return params;
}

std::vector<subscriber> subscribers_among(const std::vector<std::shared_ptr<plugin>>& all) {
    std::vector<subscriber> found;
    found.reserve(all.size());
    for (const auto& each : all)
        found.push_back({each->is_active(), each->registrations()});
    return found;
}

} // namespace

outcome publisher::tell(plugin& to, const publication& what) const {
    unique_node info = new_element("info");
    add_element(info.get(), "oper-type", std::to_string(what.oper));
    add_element(info.get(), "more-flag", what.more ? "1" : "0");
    add_element(info.get(), "priority", std::to_string(what.at.priority));
    add_element(info.get(), "path", what.path.text());
    return to.ask({.method = "publish",
                   .params = publish_params("config", what.at.callback, std::move(info)),
                   .path = what.path.text(),
                   .operation = what.oper},
                  answer_limit_);
}

// The last outcome that was not good, with a line for each that was told.
outcome publisher::tell_all(const plugin_list& everybody, const publication_plan& plan,
                            bool until_refused, std::size_t& told) const {
    outcome total;
    for (told = 0; told < plan.size(); ++told) {
        const publication& each = plan[told];
        plugin& to = *everybody[each.to];
        std::string shown = std::move(total.shown);
        outcome its = tell(to, each);
        const bool agreed = its.is_ok();
        shown += to.label() + " " + each.path.text() + " " + oper_text(each.oper) + ": " +
                 its.describe() + "\n";
        if (!agreed)
            total = std::move(its);
        total.shown = std::move(shown);
        if (!agreed && until_refused)
            break;
    }
    return total;
}

outcome publisher::change(const std::function<void(tree&)>& edit) {
    tree changed = trees_.current;
    edit(changed);
    if (changed.text() == trees_.current.text())
        return outcome::unheard("nothing has changed");
    trees_.keys.learn(changed);
    const plugin_list everybody = plugins_.all();
    const publication_plan plan =
        plan_changes(subscribers_among(everybody), trees_.current, changed, trees_.keys);
    tree before = trees_.current;
    const std::size_t restarts = trees_.restarts();
    tree standing_old = std::exchange(trees_.old, trees_.current);
    trees_.current = std::move(changed);
    if (plan.empty())
        return outcome::unheard("no active plugin is concerned");
    std::size_t told = 0;
    outcome total = tell_all(everybody, plan, true, told);
    if (total.is_ok())
        return total;
    // From here on the tree that stands is the current one again, for those who pull.
    put_back_old(std::exchange(trees_.current, std::move(before)), restarts);
    total.shown += tell_all(everybody, plan_back(plan, told), false, told).shown;
    put_back_old(std::move(standing_old), restarts);
    return total;
}

// Unless a restart has come between, over which none stays.
void publisher::put_back_old(tree old, std::size_t restarts) {
    if (trees_.restarts() == restarts)
        trees_.old = std::move(old);
}

void publisher::recover() {
    while (!wanted_.empty()) {
        const auto who = wanted_.front().who.lock();
        if (who == nullptr) {
            wanted_.pop_front();
            continue;
        }
        outcome how = recover(who);
        around_.recovered(who->name(), std::move(how), who->faults() > 0);
    }
}

// All that it wants; it may want more meanwhile.
outcome publisher::recover(const std::shared_ptr<plugin>& who) {
    const std::size_t restarts = trees_.restarts();
    tree standing_old = std::exchange(trees_.old, tree()); // all of it is new to the plugin
    const plugin_list alone{who};
    const publication_plan changes =
        plan_changes(subscribers_among(alone), trees_.old, trees_.current, trees_.keys);
    publication_plan plan;
    for (; !wanted_.empty() && wanted_.front().who.lock() == who; wanted_.pop_front())
        for (publication each : changes) {
            each.oper |= wanted_.front().oper;
            plan.push_back(std::move(each));
        }
    std::size_t told = 0;
    outcome total = tell_all(alone, plan, false, told);
    put_back_old(std::move(standing_old), restarts);
    return plan.empty() ? outcome::unheard("nothing stands at its paths") : total;
}

outcome publisher::publish(const data_path& path, int oper) {
    const plugin_list everybody = plugins_.all();
    const auto subscribers = subscribers_among(everybody);
    const publication_plan plan = plan_bits(subscribers, path, oper);
    if (plan.empty()) {
        const std::string below = subscribed_below(subscribers, path);
        return outcome::unheard("no active plugin subscribes to " + path.text() +
                                " or to what it lies in" +
                                (below.empty() ? "" : "; below it there is " + below));
    }
    std::size_t told = 0;
    return tell_all(everybody, plan, false, told);
}

// The one whose path is nearest to the given one, at it or above.
std::optional<publisher::provider> publisher::provider_of(serves kind,
                                                          const data_path& path) const {
    std::optional<provider> best;
    for (const auto& to : plugins_.all())
        for (const registration& at : to->registrations())
            if (to->is_active() && at.kind == kind && at.path.covers(path) &&
                (!best || at.path.steps.size() > best->at.path.steps.size()))
                best = {to, at};
    return best;
}

outcome publisher::status(const data_path& path, const std::string& filter) {
    const auto found = provider_of(serves::status, path);
    if (!found)
        return nobody("publishes the status of", path);
    unique_node params = new_element("params");
    add_element(params.get(), "path", path.text());
    add_element(params.get(), "session-id", std::to_string(console_session));
    if (!filter.empty())
        add_element(params.get(), "filter", filter);
    add_element(params.get(), "callback", std::to_string(found->at.callback));
    outcome result = found->who->ask({.method = "subscribe",
                                      .params = std::move(params),
                                      .called = "status",
                                      .path = path.text()},
                                     answer_limit_);
    if (!result.is_ok())
        return result;
    if (result.data != nullptr) {
        const xmlNode* const data = find_child(result.data->parent, "data");
        result.data = {result.data, data == nullptr ? nullptr : data->children};
    }
    return result;
}

outcome publisher::operate(const data_path& path, unique_nodes input) {
    const auto found = provider_of(serves::operate, path);
    if (!found)
        return nobody("serves the operation", path);
    unique_node info = new_element("info");
    attach(info.get(), std::move(input));
    return found->who->ask(
        {.method = "publish",
         .params = publish_params("operate", found->at.callback, std::move(info)),
         .called = "operate",
         .path = path.text()},
        answer_limit_);
}

outcome publisher::kick_off(const std::string& name) {
    outcome total = outcome::unheard("there is no such active plugin");
    const auto everybody = plugins_.all();
    for (const auto& each : everybody)
        if (each->is_active() && (name.empty() || each->name() == name))
            total = send(*each, "kickoff", new_element("params"));
    return total;
}

outcome publisher::send(plugin& to, const std::string& method, unique_node params) {
    return to.ask({.method = method, .params = std::move(params)}, answer_limit_);
}

} // namespace pelmsim
