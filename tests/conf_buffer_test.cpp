// Any order of operations is held against a model in fuzz/containers.cpp.
#include "conf_buffer.h"

#include "buffer_parts.h"
#include "support/test.h"

#include <sys/mman.h>

namespace {

constexpr int largest = INT_MAX - 4095; // mapping whose length an int can hold

bool all_zero(const char* first, const char* last) {
    return std::all_of(first, last, [](char byte) { return byte == 0; });
}

class Buffer : public testing::Test {
protected:
    ~Buffer() override {
        conf_buffer_destroy(buf_);
        expect_errors({});
    }
    int append(std::string bytes) {
        return conf_buffer_append(&buf_, bytes.data(), static_cast<int>(bytes.size()));
    }
    void expect(std::string_view content, int total) {
        EXPECT_EQ(static_cast<char*>(conf_buffer_data(buf_)), content);
        EXPECT_EQ(conf_buffer_length(buf_), static_cast<int>(content.size()));
        EXPECT_EQ(buf_->total, total);
        EXPECT_TRUE(all_zero(buf_->buf + buf_->used, buf_->buf + buf_->total));
    }

    const mapping_watch mappings_;
    conf_buffer_t* buf_ = conf_buffer_create(0);
    char byte_[2] = "x";
};

} // namespace

TEST_F(Buffer, TakesPagesByRule) {
    // The size asked for, the bytes added first and then, and the room in the end.
    constexpr std::tuple<int, std::size_t, std::size_t, int> cases[] = {
        {4087, 0, 0, 4088},        {4088, 0, 0, 8184},        {0, 0, 4087, 4088},
        {0, 4000, 87, 4088},       {0, 4000, 88, 131064},     {0, 0, 131062, 131064},
        {0, 0, 131063, 262136},    {0, 0, 0x1FFFF, 266232},   {0, 0, 0x20000, 135160},
        {0, 4000, 130000, 266232}, {0, 262000, 4096, 397304}, {0, 262000, 0x20000, 393208}};
    for (const auto& [size, used, added, total] : traced(cases)) {
        conf_buffer_destroy(std::exchange(buf_, conf_buffer_create(size)));
        EXPECT_EQ(append(std::string(used, 'a')), 0);
        EXPECT_EQ(append(std::string(added, 'b')), 0);
        expect(std::string(used, 'a') + std::string(added, 'b'), total);
    }
}

TEST_F(Buffer, SlimsWhatIsAtMostHalfFull) {
    const conf_buffer_t* page = buf_;
    append(std::string(2045, 'x'));
    conf_buffer_slim(&buf_);
    EXPECT_EQ(buf_, page);
    conf_buffer_remove(buf_, 2044, 2); // one more than there is
    conf_buffer_slim(&buf_);           // to a fresh page, though one page is all there was
    EXPECT_NE(buf_, page);
    append(std::string(70000 - 2044, 'x'));
    conf_buffer_slim(&buf_);
    expect(std::string(70000, 'x'), 131064);
    conf_buffer_remove(buf_, 100, INT_MAX); // a sum that no int holds reaches the end
    conf_buffer_slim(&buf_);
    expect(std::string(100, 'x'), 4088);
    conf_buffer_flush(buf_);
    EXPECT_STREQ(buf_->buf, "");
}

TEST_F(Buffer, ReportsBadArguments) {
    append("abc");
    conf_buffer_t* none = nullptr;
    const std::tuple<conf_buffer_t**, void*, int> puts[] = {
        {nullptr, byte_, 1}, {&none, byte_, 1}, {&buf_, nullptr, 0}, {&buf_, byte_, INT_MIN}};
    for (const auto& [buf, context, len] : traced(puts)) {
        EXPECT_EQ(conf_buffer_insert(buf, 9, context, len), -1);
        EXPECT_EQ(conf_buffer_append(buf, context, len), -1);
        void* handle = buf;
        const auto report = text("Error input parameter(buf=%p, context=%p).", handle, context);
        expect_errors({report, report});
    }
    EXPECT_EQ(conf_buffer_insert(&buf_, 4, byte_, 1), -1);
    conf_buffer_remove(nullptr, 0, 1);
    conf_buffer_slim(nullptr);
    EXPECT_EQ(conf_buffer_data(nullptr), nullptr);
    EXPECT_EQ(conf_buffer_length(nullptr), 0);
    conf_buffer_destroy(nullptr);
    conf_buffer_flush(nullptr);
    expect_errors(
        {"Error offset(offset=4, buf.used=3).", "Error input parameter(buf=(nil), start=0, len=1).",
         "Error input parameter(buf=(nil)).", "Error input parameter.", "Error input parameter."});
    expect("abc", 4088);
}

TEST_F(Buffer, IsAsBeforeWithoutMemory) {
    append("abc");
    const conf_buffer_t* before = buf_;
    const fault at_create(call::mmap, ENOMEM);
    EXPECT_EQ(conf_buffer_create(largest - 9), nullptr);
    expect_errors({"Allocate memory failed(Cannot allocate memory)."});
    const fault at_insert(call::mremap, ENOMEM);
    EXPECT_EQ(conf_buffer_insert(&buf_, 1, byte_, largest - 12), -1);
    expect_errors({"Allocate 2147479552 byte(s) memory failed(Cannot allocate memory).",
                   "Expand buffer failed."});
    // Beyond what an int can count.
    EXPECT_EQ(conf_buffer_append(&buf_, byte_, INT_MAX), -1);
    EXPECT_EQ(conf_buffer_insert(&buf_, 1, byte_, largest - 11), -1);
    expect_errors({"Expand buffer failed.", "Expand buffer failed."});
    for (int size : {-1, INT_MIN, INT_MAX, largest - 8}) {
        EXPECT_EQ(conf_buffer_create(size), nullptr);
        expect_errors({"Allocate memory failed(Invalid argument)."});
    }
    EXPECT_EQ(buf_, before);
    expect("abc", 4088);
}

TEST_F(Buffer, LeavesNothingOfWhatItHeld) {
    std::string secrets;
    while (secrets.size() < 70000)
        secrets += secret;
    append(secrets);
    conf_buffer_remove(buf_, 1000, INT_MAX); // which still lies there
    const secret_watch watch;
    conf::buffer_cut(&buf_, 500);
    expect(secrets.substr(500, 500), 4088);
    const conf_buffer_t* const page = buf_;
    conf::buffer_cut(&buf_, 100);
    EXPECT_EQ(buf_, page); // rather than another one
    expect(secrets.substr(600, 400), 4088);
    conf_buffer_flush(buf_);
    conf_buffer_destroy(std::exchange(buf_, nullptr));
    EXPECT_EQ(watch.all(), 0);
}
