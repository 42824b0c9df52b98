// How queues behave is held against a model in fuzz/containers.cpp.
#include "conf_dlq.h"

#include "support/reports.h"

#include <cstdlib>
#include <gtest/gtest.h>

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
        EXPECT_EQ(conf_dlq_prev(in, node), nullptr);
        EXPECT_EQ(conf_dlq_insert(in, pos, node), -1);
        const auto report =
            text("Error input parameter(list=%p, node=%p).", in_address, node_address);
        expect_errors({report, text("Error input parameter(list=%p, before=%p, node=%p).",
                                    in_address, static_cast<void*>(pos), node_address)});
        if (in != nullptr && node != nullptr)
            continue;
        EXPECT_EQ(conf_dlq_append(in, node), -1);
        expect_errors({report});
    }
    conf_dlq_init(nullptr);
    conf_dlq_free(nullptr, free);
    conf_dlq_free(&list, nullptr);
    EXPECT_EQ(conf_dlq_head(nullptr), nullptr);
    EXPECT_EQ(conf_dlq_tail(nullptr), nullptr);
    void *list_address = &list, *func_address = reinterpret_cast<void*>(free);
    expect_errors({"Error input parameter.",
                   text("Error input parameter(list=(nil), free_func=%p).", func_address),
                   text("Error input parameter(list=%p, free_func=(nil)).", list_address),
                   "Error input parameter."});
    for (const auto& [kept, node] : {std::pair{&list, &here}, {&other, &there}})
        EXPECT_TRUE(kept->num == 1 && kept->head == node && kept->tail == node);
}
