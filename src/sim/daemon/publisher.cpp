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

int taken_back(int oper) {
    const int reverse = oper == CONFIG_OP_ADD  ? CONFIG_OP_RM
                        : oper == CONFIG_OP_RM ? CONFIG_OP_ADD
                                               : oper;
    return reverse | CONFIG_OP_ROLLBACK;
}

} // namespace

publisher::plan publisher::plan_for(const tree& before, const tree& after,
                                    const plugin* only) const {
    plan all;
    for (const auto& to : daemon_.plugins())
        for (const registration& at : to->registrations)
            if (to->active && at.kind == serves::config && (only == nullptr || only == to.get()))
                for (auto& [path, oper] : differences(before, after, at.path, trees_.keys))
                    all.push_back({to, at, std::move(path), oper});
    std::ranges::stable_sort(all, {}, [](const publication& each) { return each.at.priority; });
    return all;
}

outcome publisher::tell(const publication& what, bool more) {
    unique_node info = new_element("info");
    add_element(info.get(), "oper-type", std::to_string(what.oper));
    add_element(info.get(), "more-flag", more ? "1" : "0");
    add_element(info.get(), "priority", std::to_string(what.at.priority));
    add_element(info.get(), "path", what.path.text());
    return what.to->ask("publish", publish_params("config", what.at.callback, std::move(info)),
                        &what.path, what.oper);
}

// The last outcome that was not good, with a line for each that was told.
outcome publisher::tell_all(const plan& all, bool until_refused, std::size_t& told) {
    outcome total;
    for (told = 0; told < all.size(); ++told) {
        const publication& each = all[told];
        const bool more =
            std::any_of(all.begin() + static_cast<std::ptrdiff_t>(told) + 1, all.end(),
                        [&](const publication& later) { return later.to == each.to; });
        std::string shown = total.shown;
        const outcome its = tell(each, more);
        shown += each.to->label() + " " + each.path.text() + " " + oper_text(each.oper) + ": " +
                 its.describe() + "\n";
        if (!its.is_ok())
            total = its;
        total.shown = std::move(shown);
        if (!its.is_ok() && until_refused)
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
    const plan all = plan_for(trees_.current, changed);
    tree standing_old = std::exchange(trees_.old, trees_.current);
    trees_.current = std::move(changed);
    if (all.empty())
        return outcome::ok("no active plugin is concerned");
    std::size_t told = 0;
    outcome total = tell_all(all, true, told);
    if (total.is_ok())
        return total;
    // From here on the tree that stands is the current one again, for those who pull.
    std::swap(trees_.current, trees_.old);
    plan back(all.rend() - static_cast<std::ptrdiff_t>(told), all.rend());
    for (publication& each : back)
        each.oper = taken_back(each.oper);
    total.shown += tell_all(back, false, told).shown;
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
        plan all = plan_for(trees_.old, trees_.current, who.get());
        for (publication& each : all)
            each.oper |= bits;
        std::size_t told = 0;
        (void)tell_all(all, false, told);
        trees_.old = std::move(standing_old);
    }
}

outcome publisher::publish(const data_path& path, int oper) {
    plan all;
    std::string below;
    for (const auto& to : daemon_.plugins())
        for (const registration& at : to->registrations) {
            if (!to->active || at.kind != serves::config)
                continue;
            if (at.path.covers(path))
                all.push_back({to, at, path, oper});
            else if (path.covers(at.path))
                below += (below.empty() ? "; below it there is " : ", ") + at.path.text();
        }
    if (all.empty())
        return outcome::no_answer("no active plugin subscribes to " + path.text() +
                                  " or to what it lies in" + below);
    std::ranges::stable_sort(all, {}, [](const publication& each) { return each.at.priority; });
    std::size_t told = 0;
    return tell_all(all, false, told);
}

// The one whose path is nearest to the given one, at it or above.
std::optional<publisher::publication> publisher::server_of(serves kind,
                                                           const data_path& path) const {
    std::optional<publication> best;
    for (const auto& to : daemon_.plugins())
        for (const registration& at : to->registrations)
            if (to->active && at.kind == kind && at.path.covers(path) &&
                (!best || at.path.steps.size() > best->at.path.steps.size()))
                best = {to, at, path, 0};
    return best;
}

outcome publisher::status(const data_path& path, const std::string& filter) {
    const auto server = server_of(serves::status, path);
    if (!server)
        return nobody("publishes the status of", path);
    unique_node params = new_element("params");
    add_element(params.get(), "path", path.text());
    add_element(params.get(), "session-id", std::to_string(console_session));
    if (!filter.empty())
        add_element(params.get(), "filter", filter);
    add_element(params.get(), "callback", std::to_string(server->at.callback));
    outcome result = server->to->ask("subscribe", std::move(params), &path);
    if (!result.is_ok())
        return result;
    if (result.data != nullptr) {
        const xmlNode* const data = find_child(result.data->parent, "data");
        result.data = {result.data, data == nullptr ? nullptr : data->children};
    }
    return result;
}

outcome publisher::operate(const data_path& path, unique_nodes input) {
    const auto server = server_of(serves::operate, path);
    if (!server)
        return nobody("serves the operation", path);
    unique_node info = new_element("info");
    attach(info.get(), std::move(input));
    return server->to->ask("publish",
                           publish_params("operate", server->at.callback, std::move(info)), &path);
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
