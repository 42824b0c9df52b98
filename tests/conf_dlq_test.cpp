#include "conf_dlq.h"

#include "support/reports.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace {

using nodes = std::vector<conf_dlq_node_t*>;

void expect(conf_dlq_list_t& list, nodes model) {
    nodes forwards, backwards;
    for (auto* node = conf_dlq_head(&list); node; node = conf_dlq_next(&list, node))
        forwards.push_back(node);
    for (auto* node = conf_dlq_tail(&list); node; node = conf_dlq_prev(&list, node))
        backwards.push_back(node);
    EXPECT_EQ(list.num, model.size());
    EXPECT_EQ(forwards, model);
    std::ranges::reverse(model);
    EXPECT_EQ(backwards, model);
}

nodes freed;

void free_node(void* node) {
    freed.push_back(static_cast<conf_dlq_node_t*>(node));
    *freed.back() = {node, freed.back(), freed.back()}; // what it says must not matter any more
}

} // namespace

TEST(Queue, AgreesWithAModelOverManyOperations) {
    std::mt19937 random(21);
    conf_dlq_node_t all[40] = {};
    conf_dlq_list_t lists[2] = {{.num = 7, .head = all, .tail = all}, {0, all, all}};
    nodes models[2] = {{}, {all}};
    conf_dlq_init(&lists[0]);
    EXPECT_EQ(conf_dlq_append(&lists[1], all), 0); // empty by its count, whatever else it says
    for (int step = 0; step < 5000; ++step) {
        auto& list = lists[step % 2];
        auto& model = models[step % 2];
        auto* node = &all[random() % std::size(all)];
        const auto place = model.begin() + static_cast<int>(random() % (model.size() + 1));
        if (node->list != nullptr) {
            const bool ours = node->list == &list;
            conf_dlq_remove(&list, node); // changes nothing when the other list holds it
            EXPECT_EQ(std::erase(model, node), ours);
            EXPECT_EQ(!node->list && !node->prev && !node->next, ours);
        } else if (step % 3 == 0) {
            EXPECT_EQ(conf_dlq_append(&list, node), 0);
            model.push_back(node);
        } else {
            EXPECT_EQ(conf_dlq_insert(&list, place == model.end() ? nullptr : *place, node), 0);
            model.insert(place, node);
        }
        expect(lists[0], models[0]);
        expect(lists[1], models[1]);
    }
    conf_dlq_free(&lists[0], free_node);
    EXPECT_EQ(freed, models[0]);
    expect(lists[0], {});
    expect_errors({});
}

TEST(Queue, ReportsSomeBadArgumentsAndIgnoresOthers) {
    conf_dlq_list_t list{}, other{};
    conf_dlq_node_t here{}, there{}, loose{};
    conf_dlq_append(&list, &here);
    conf_dlq_append(&other, &there);
    const std::tuple<conf_dlq_list_t*, conf_dlq_node_t*, conf_dlq_node_t*> cases[] = {
        {nullptr, nullptr, &loose}, {nullptr, &here, &loose}, {&list, nullptr, nullptr},
        {&list, &here, nullptr},    {&list, &there, &loose},  {&list, &loose, &loose}};
    for (const auto& [in, pos, node] : cases) {
        void *in_address = in, *node_address = node;
        conf_dlq_remove(in, node);
        EXPECT_EQ(conf_dlq_next(in, node), nullptr);
        expect_errors({});
        const auto report =
            text("Error input parameter(list=%p, node=%p).", in_address, node_address);
        EXPECT_EQ(conf_dlq_prev(in, node), nullptr);
        EXPECT_EQ(conf_dlq_insert(in, pos, node), -1);
        expect_errors({report, text("Error input parameter(list=%p, before=%p, node=%p).",
                                    in_address, static_cast<void*>(pos), node_address)});
        if (in != nullptr && node != nullptr)
            continue;
        EXPECT_EQ(conf_dlq_append(in, node), -1);
        expect_errors({report});
    }
    EXPECT_EQ(conf_dlq_head(nullptr), nullptr);
    EXPECT_EQ(conf_dlq_tail(nullptr), nullptr);
    conf_dlq_init(nullptr);
    conf_dlq_free(nullptr, free_node);
    conf_dlq_free(&list, nullptr);
    void *list_address = &list, *func_address = reinterpret_cast<void*>(free_node);
    expect_errors({"Error input parameter.", "Error input parameter.",
                   text("Error input parameter(list=(nil), free_func=%p).", func_address),
                   text("Error input parameter(list=%p, free_func=(nil)).", list_address)});
    expect(list, {&here});
    expect(other, {&there});
}
