// How queues behave is held against a model in fuzz/containers.cpp.
#include "conf_dlq.h"

#include "support/test.h"

TEST(Queue, ReportsSomeBadArgumentsAndIgnoresOthers) {
    conf_dlq_list_t list{}, other{};
    conf_dlq_node_t node{};
    conf_dlq_append(&other, &node);
    for (const auto& [in, bad] : {std::pair{&list, &node}, {&list, {}}, {{}, &node}}) {
        void *of_list = in, *of_node = bad, *of_pos = &node;
        conf_dlq_remove(in, bad);
        EXPECT_EQ(conf_dlq_next(in, bad), nullptr);
        EXPECT_EQ(conf_dlq_prev(in, bad), nullptr);
        EXPECT_EQ(conf_dlq_insert(in, &node, bad), -1);
        EXPECT_TRUE((in && bad) || conf_dlq_append(in, bad) == -1);
        const auto report = text("Error input parameter(list=%p, node=%p).", of_list, of_node);
        const auto of_insert =
            text("Error input parameter(list=%p, before=%p, node=%p).", of_list, of_pos, of_node);
        expect_errors(in && bad ? std::vector{report, of_insert}
                                : std::vector{report, of_insert, report});
    }
    void *of_list = &list, *of_func = reinterpret_cast<void*>(free);
    conf_dlq_init(nullptr);
    conf_dlq_free(nullptr, free);
    conf_dlq_free(&list, nullptr);
    EXPECT_EQ(conf_dlq_head(nullptr), nullptr);
    EXPECT_EQ(conf_dlq_tail(nullptr), nullptr);
    expect_errors({"Error input parameter.",
                   text("Error input parameter(list=(nil), free_func=%p).", of_func),
                   text("Error input parameter(list=%p, free_func=(nil)).", of_list),
                   "Error input parameter."});
    EXPECT_TRUE(list.num == 0 && other.num == 1 && other.head == &node && other.tail == &node);
}
