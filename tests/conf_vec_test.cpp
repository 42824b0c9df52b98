// How vectors behave is held against a model in fuzz/containers.cpp.
#include "conf_vec.h"

#include "support/test.h"

static constexpr u32_t most = (UINT32_MAX - sizeof(conf_vec_t)) / sizeof(conf_vec_node_t);

TEST(Vector, MayBeAsLargeAsThirtyTwoBitsAllow) {
    const fault no_memory(call::malloc, ENOMEM);
    EXPECT_EQ(conf_vector_create(most), nullptr);
    expect_errors({"Allocate memory failed(Cannot allocate memory)."});
}
