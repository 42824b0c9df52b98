// How vectors behave is held against a model in fuzz/containers.cpp.
#include "conf_vec.h"

#include "support/faults.h"
#include "support/reports.h"

#include <cerrno>
#include <gtest/gtest.h>

static constexpr u32_t most = (UINT32_MAX - sizeof(conf_vec_t)) / sizeof(conf_vec_node_t);

TEST(Vector, ReportsBadArguments) {
    for (u32_t size : {0u, most + 1, UINT32_MAX}) {
        EXPECT_EQ(conf_vector_create(size), nullptr);
        expect_errors({text("Error input parameter(size=%d).", static_cast<int>(size))});
    }
    conf_vec_t *none = nullptr, *vector = conf_vector_create(2);
    const std::pair<conf_vec_t**, void*> adds[] = {
        {nullptr, &none}, {&none, &none}, {&vector, nullptr}};
    for (const auto& [in, data] : adds) {
        void* address = in;
        EXPECT_EQ(conf_vector_add(in, data), -1);
        expect_errors({text("Error input parameter(vector=%p, data=%p).", address, data)});
    }
    for (const auto& [in, idx] : {std::pair{vector, 2u}, {vector, UINT32_MAX}, {none, 0u}}) {
        void* address = in;
        const auto report =
            text("Error input parameter(vector=%p, index=%d).", address, static_cast<int>(idx));
        EXPECT_EQ(conf_vector_get(in, idx), nullptr);
        EXPECT_EQ(conf_vector_remove(in, idx), -1);
        expect_errors({report, report});
    }
    EXPECT_EQ(conf_vector_size(nullptr), 0);
    conf_vector_destroy(nullptr, [](void*) { FAIL(); });
    expect_errors({"Error input parameter(vector=(nil)).", "Error input parameter."});
    conf_vector_destroy(vector, nullptr);
}

TEST(Vector, IsAsBeforeWithoutMemory) {
    const fault at_create(call::malloc, ENOMEM);
    EXPECT_EQ(conf_vector_create(most), nullptr);
    conf_vec_t* vector = conf_vector_create(1);
    const conf_vec_t* before = vector;
    EXPECT_EQ(conf_vector_add(&vector, &vector), 0);
    const fault at_add(call::malloc, ENOMEM);
    EXPECT_EQ(conf_vector_add(&vector, &vector), -1);
    expect_errors({"Allocate memory failed(Cannot allocate memory).",
                   "Malloc memory failed(Cannot allocate memory)."});
    EXPECT_EQ(vector, before);
    EXPECT_EQ(conf_vector_get(vector, 0), &vector);
    conf_vector_destroy(vector, nullptr);
}
