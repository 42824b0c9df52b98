#include "daemon/plan.h"

#include <algorithm>
#include <conf_api.h>
#include <set>

namespace pelmsim {
namespace {

void mark_more(publication_plan& all) {
    std::set<std::size_t> seen;
    for (std::size_t i = all.size(); i-- > 0;)
        all[i].more = !seen.insert(all[i].to).second;
}

publication_plan in_order(publication_plan all) {
    std::ranges::stable_sort(all, {}, [](const publication& each) { return each.at.priority; });
    mark_more(all);
    return all;
}

template <class Action> void for_each_config(std::span<const subscriber> all, Action act) {
    for (std::size_t to = 0; to < all.size(); ++to)
        for (const registration& at : all[to].registrations)
            if (all[to].active && at.kind == serves::config)
                act(to, at);
}

int taken_back(int oper) {
    const int reverse = oper == CONFIG_OP_ADD  ? CONFIG_OP_RM
                        : oper == CONFIG_OP_RM ? CONFIG_OP_ADD
                                               : oper;
    return reverse | CONFIG_OP_ROLLBACK;
}

} // namespace

publication_plan plan_changes(std::span<const subscriber> all, const tree& before,
                              const tree& after, const key_book& keys) {
    publication_plan plan;
    for_each_config(all, [&](std::size_t to, const registration& at) {
        for (auto& [path, oper] : differences(before, after, at.path, keys))
            plan.push_back({to, at, std::move(path), oper});
    });
    return in_order(std::move(plan));
}

publication_plan plan_bits(std::span<const subscriber> all, const data_path& path, int oper) {
    publication_plan plan;
    for_each_config(all, [&](std::size_t to, const registration& at) {
        if (at.path.covers(path))
            plan.push_back({to, at, path, oper});
    });
    return in_order(std::move(plan));
}

std::string subscribed_below(std::span<const subscriber> all, const data_path& path) {
    std::string below;
    for_each_config(all, [&](std::size_t, const registration& at) {
        if (!at.path.covers(path) && path.covers(at.path))
            below += (below.empty() ? "" : ", ") + at.path.text();
    });
    return below;
}

publication_plan plan_back(const publication_plan& done, std::size_t count) {
    publication_plan back(done.rend() - static_cast<std::ptrdiff_t>(count), done.rend());
    for (publication& each : back)
        each.oper = taken_back(each.oper);
    mark_more(back);
    return back;
}

} // namespace pelmsim
