#include "daemon/publisher.h"

#include "model/operation.h"

#include <algorithm>
#include <conf_api.h>

namespace pelmsim {
namespace {

constexpr int console_session = 1; // the session that all requests are made in

outcome nobody(const std::string& what, const data_path& path) {
    return outcome::no_answer("no active plugin " + what + " " + path.text());
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
        found.push_back({each->active, each->registrations});
    return found;
}

outcome tell(plugin& to, const publication& what) {
    unique_node info = new_element("info");
    add_element(info.get(), "oper-type", std::to_string(what.oper));
    add_element(info.get(), "more-flag", what.more ? "1" : "0");
    add_element(info.get(), "priority", std::to_string(what.at.priority));
    add_element(info.get(), "path", what.path.text());
    return to.ask("publish", publish_params("config", what.at.callback, std::move(info)),
                  &what.path, what.oper);
}

} // namespace

// The last outcome that was not good, with a line for each that was told.
outcome publisher::tell_all(const plugins& everybody, const publication_plan& plan,
                            bool until_refused, std::size_t& told) {
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
        return outcome::ok("nothing has changed");
    trees_.keys.learn(changed);
    const plugins everybody = daemon_.plugins();
    const publication_plan plan =
        plan_changes(subscribers_among(everybody), trees_.current, changed, trees_.keys);
    tree standing_old = std::exchange(trees_.old, trees_.current);
    trees_.current = std::move(changed);
    if (plan.empty())
        return outcome::ok("no active plugin is concerned");
    std::size_t told = 0;
    outcome total = tell_all(everybody, plan, true, told);
    if (total.is_ok())
        return total;
    // From here on the tree that stands is the current one again, for those who pull.
    std::swap(trees_.current, trees_.old);
    total.shown += tell_all(everybody, plan_back(plan, told), false, told).shown;
    trees_.old = std::move(standing_old);
    return total;
}

void publisher::recover() {
    while (const auto wanted = daemon_.take_recovery()) {
        const auto& [weak, bits] = *wanted;
        const auto who = weak.lock();
        if (who == nullptr)
            continue;
        tree standing_old = std::exchange(trees_.old, tree()); // all of it is new to the plugin
        const plugins alone{who};
        publication_plan plan =
            plan_changes(subscribers_among(alone), trees_.old, trees_.current, trees_.keys);
        for (publication& each : plan)
            each.oper |= bits;
        std::size_t told = 0;
        (void)tell_all(alone, plan, false, told);
        trees_.old = std::move(standing_old);
    }
}

outcome publisher::publish(const data_path& path, int oper) {
    const plugins everybody = daemon_.plugins();
    const auto subscribers = subscribers_among(everybody);
    const publication_plan plan = plan_bits(subscribers, path, oper);
    if (plan.empty()) {
        const std::string below = subscribed_below(subscribers, path);
        return outcome::no_answer("no active plugin subscribes to " + path.text() +
                                  " or to what it lies in" +
                                  (below.empty() ? "" : "; below it there is " + below));
    }
    std::size_t told = 0;
    return tell_all(everybody, plan, false, told);
}

// The one whose path is nearest to the given one, at it or above.
std::optional<publisher::server> publisher::server_of(serves kind, const data_path& path) const {
    std::optional<server> best;
    for (const auto& to : daemon_.plugins())
        for (const registration& at : to->registrations)
            if (to->active && at.kind == kind && at.path.covers(path) &&
                (!best || at.path.steps.size() > best->at.path.steps.size()))
                best = {to, at};
    return best;
}

outcome publisher::status(const data_path& path, const std::string& filter) {
    const auto found = server_of(serves::status, path);
    if (!found)
        return nobody("publishes the status of", path);
    unique_node params = new_element("params");
    add_element(params.get(), "path", path.text());
    add_element(params.get(), "session-id", std::to_string(console_session));
    if (!filter.empty())
        add_element(params.get(), "filter", filter);
    add_element(params.get(), "callback", std::to_string(found->at.callback));
    outcome result = found->who->ask("subscribe", std::move(params), &path);
    if (!result.is_ok())
        return result;
    if (result.data != nullptr) {
        const xmlNode* const data = find_child(result.data->parent, "data");
        result.data = {result.data, data == nullptr ? nullptr : data->children};
    }
    return result;
}

outcome publisher::operate(const data_path& path, unique_nodes input) {
    const auto found = server_of(serves::operate, path);
    if (!found)
        return nobody("serves the operation", path);
    unique_node info = new_element("info");
    attach(info.get(), std::move(input));
    return found->who->ask("publish",
                           publish_params("operate", found->at.callback, std::move(info)), &path);
}

outcome publisher::kick_off(const std::string& name) {
    outcome total = outcome::no_answer("there is no such active plugin");
    const auto everybody = daemon_.plugins();
    for (const auto& each : everybody)
        if (each->active && (name.empty() || each->name == name))
            total = each->ask("kickoff", new_element("params"));
    return total;
}

} // namespace pelmsim
