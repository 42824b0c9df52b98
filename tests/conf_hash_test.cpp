// Any order of operations is held against a model in fuzz/containers.cpp.
#include "conf_hash.h"

#include "support/test.h"

namespace {

class Hash : public testing::Test {
protected:
    ~Hash() override {
        conf_hash_destroy(table_);
        expect_errors({});
    }
    int add(std::string key, std::string value) {
        return conf_hash_add(table_, key.data(), value.data(), static_cast<u32_t>(value.size()));
    }

    conf_hash_tbl_t* table_ = conf_hash_create(8);
    char key_[2] = "a", value_[2] = "v";
};

} // namespace

TEST_F(Hash, ChoosesSeedAndBucketByRule) {
    const std::tuple<u32_t, u32_t, std::string, u32_t> cases[] = {
        {130, 31, "\xE9", 103},           {131, 131, "\xFF\x81", 129},
        {1312, 131, "abc", 818},          {1313, 1313, "plugin", 1174},
        {13130, 1313, "plugin", 7739},    {13131, 13131, "plugin", 9681},
        {131313, 131313, "plugin", 27901}};
    for (auto [buckets, seed, key, bucket] : traced(cases)) {
        conf_hash_destroy(std::exchange(table_, conf_hash_create(buckets)));
        EXPECT_EQ(table_->seed, seed);
        EXPECT_EQ(add(key, "value"), 0);
        EXPECT_NE(table_->buckets[bucket].head, nullptr);
        conf_hash_del(table_, key.data());
    }
}

TEST_F(Hash, RefusesSizesBeyondThirtyTwoBits) {
    constexpr u32_t most = (UINT32_MAX - sizeof(conf_hash_tbl_t)) / sizeof(conf_dlq_list_t);
    for (u32_t buckets : {0u, most + 1}) {
        EXPECT_EQ(conf_hash_create(buckets), nullptr);
        expect_errors({text("Error input parameter(size=%d).", static_cast<int>(buckets))});
    }
    const fault at_create(call::malloc, ENOMEM);
    EXPECT_EQ(conf_hash_create(most), nullptr);
    expect_errors({"Allocate memory failed(Cannot allocate memory)."});
}

TEST_F(Hash, LosesAKeyWhoseReplacementFindsNoMemory) {
    constexpr u32_t largest = UINT32_MAX - sizeof(conf_hash_node_t) - sizeof key_;
    for (u32_t length : {largest, largest + 1}) {
        EXPECT_EQ(add("a", "value"), 0);
        const fault no_room(call::malloc, ENOMEM);
        EXPECT_EQ(conf_hash_add(table_, key_, value_, length), -1);
        EXPECT_EQ(no_room.hit(), length == largest);
        EXPECT_EQ(conf_hash_get(table_, key_), nullptr);
        expect_errors({length == largest ? "Allocate memory failed(Cannot allocate memory)."
                                         : "Allocate memory size is less than 0."});
    }
}
