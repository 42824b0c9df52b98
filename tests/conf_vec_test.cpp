#include "conf_vec.h"

#include "support/faults.h"
#include "support/reports.h"

#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>
#include <random>

namespace {

std::vector<void*> released;

void release(void* data) { released.push_back(data); }

constexpr u32_t most = (UINT32_MAX - sizeof(conf_vec_t)) / sizeof(conf_vec_node_t);

} // namespace

TEST(Vector, AgreesWithAModelOverManyOperations) {
    std::mt19937 random(23);
    std::vector<int> elements(3000);
    std::vector<void*> model(3);
    conf_vec_t* vector = conf_vector_create(3);
    for (int& element : elements) {
        auto slot = random() % model.size();
        if (random() % 5 < 2) {
            EXPECT_EQ(conf_vector_remove(vector, static_cast<u32_t>(slot)), 0);
            model[slot] = nullptr;
        } else {
            slot = static_cast<std::size_t>(std::ranges::find(model, nullptr) - model.begin());
            EXPECT_EQ(conf_vector_add(&vector, &element), static_cast<int>(slot));
            model.resize(slot == model.size() ? slot * 2 : model.size());
            model[slot] = &element;
        }
        ASSERT_EQ(conf_vector_size(vector), static_cast<int>(model.size()));
        for (u32_t idx = 0; idx < model.size(); ++idx)
            ASSERT_EQ(conf_vector_get(vector, idx), model[idx]);
    }
    conf_vector_destroy(vector, release);
    std::erase(model, nullptr);
    EXPECT_EQ(released, model);
    expect_errors({});
}

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
    conf_vector_destroy(nullptr, release);
    expect_errors({"Error input parameter(vector=(nil)).", "Error input parameter."});
    conf_vector_destroy(vector, nullptr);
}

TEST(Vector, IsAsBeforeWithoutMemory) {
    const fault at_create(call::malloc, ENOMEM);
    EXPECT_EQ(conf_vector_create(most), nullptr);
    conf_vec_t* vector = conf_vector_create(1);
    const conf_vec_t* before = vector;
    const fault at_add(call::malloc, ENOMEM);
    EXPECT_EQ(conf_vector_add(&vector, &vector), 0);
    EXPECT_EQ(conf_vector_add(&vector, &vector), -1);
    expect_errors({"Allocate memory failed(Cannot allocate memory).",
                   "Malloc memory failed(Cannot allocate memory)."});
    EXPECT_EQ(vector, before);
    EXPECT_EQ(conf_vector_get(vector, 0), &vector);
    conf_vector_destroy(vector, nullptr);
}
