#include "conf_misc.h"

#include "support/test.h"

TEST(Descriptor, StopsBlockingAndKeepsItsOtherFlags) {
    const conf::unique_fd fd{open("/var/tmp/flags", O_RDWR | O_CREAT | O_APPEND, 0600)};
    EXPECT_EQ(conf_non_block_fd(fd.get()), 0);
    EXPECT_EQ(fcntl(fd.get(), F_GETFL) & (O_APPEND | O_NONBLOCK), O_APPEND | O_NONBLOCK);
    EXPECT_EQ(conf_non_block_fd(-1), -1);
    expect_errors({"Get options of fd(-1) failed(Bad file descriptor)."});
}

TEST(Strip, TakesWhiteSpaceOffBothEnds) {
    constexpr const char* cases[][2] = {
        {nullptr, nullptr},    {"", nullptr}, {" \t\r\n\v\f", nullptr},
        {"  ab c \t", "ab c"}, {"x", "x"},    {"\xA0 y\xFF", "\xA0 y\xFF"}};
    for (const auto& [given, expected] : traced(cases))
        EXPECT_STREQ(conf::unique_string(conf_strip(given)).get(), expected);
}

TEST(Itoa, WritesWhatFits) {
    constexpr std::tuple<long, unsigned int, const char*> cases[] = {
        {-42, 64, "-42"}, {0, 2, "0"}, {65535, 4, "655"}, {7, 1, ""}, {7, 0, "####"}};
    for (const auto& [number, size, expected] : traced(cases)) {
        char area[64] = "####";
        EXPECT_EQ(conf_itoa(number, area, size), area);
        EXPECT_STREQ(area, expected);
    }
    EXPECT_EQ(conf_itoa(7, nullptr, 64), nullptr);
    for (const long number : {LONG_MIN, LONG_MIN + 1, -10L, 1000000L, LONG_MAX}) {
        char area[32];
        EXPECT_EQ(conf_itoa(number, area, sizeof area), std::to_string(number));
    }
}
