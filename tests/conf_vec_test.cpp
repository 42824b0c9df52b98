// How vectors behave is held against a model in fuzz/containers.cpp.
#include "conf_vec.h"

#include "support/test.h"

static constexpr u32_t most = (UINT32_MAX - sizeof(conf_vec_t)) / sizeof(conf_vec_node_t);

TEST(Vector, ReportsBadArguments) {
    conf_vec_t *none = nullptr, *vector = conf_vector_create(2);
    void *none_address = &none, *vector_address = &vector;
    EXPECT_EQ(conf_vector_create(0), nullptr);
    EXPECT_EQ(conf_vector_create(most + 1), nullptr);
    EXPECT_EQ(conf_vector_add(nullptr, &none), -1);
    EXPECT_EQ(conf_vector_add(&none, &none), -1);
    EXPECT_EQ(conf_vector_add(&vector, nullptr), -1);
    EXPECT_EQ(conf_vector_get(nullptr, 0), nullptr);
    EXPECT_EQ(conf_vector_remove(nullptr, UINT32_MAX), -1);
    EXPECT_EQ(conf_vector_size(nullptr), 0);
    conf_vector_destroy(nullptr, [](void*) { FAIL(); });
    expect_errors({"Error input parameter(size=0).",
                   text("Error input parameter(size=%d).", static_cast<int>(most + 1)),
                   text("Error input parameter(vector=(nil), data=%p).", none_address),
                   text("Error input parameter(vector=%p, data=%p).", none_address, none_address),
                   text("Error input parameter(vector=%p, data=(nil)).", vector_address),
                   "Error input parameter(vector=(nil), index=0).",
                   "Error input parameter(vector=(nil), index=-1).",
                   "Error input parameter(vector=(nil)).", "Error input parameter."});
    conf_vector_destroy(vector, nullptr);
}

TEST(Vector, MayBeAsLargeAsThirtyTwoBitsAllow) {
    const fault no_memory(call::malloc, ENOMEM);
    EXPECT_EQ(conf_vector_create(most), nullptr);
    expect_errors({"Allocate memory failed(Cannot allocate memory)."});
}
