#include "conf_plugin/log.h"

#include "conf_api.h"
#include "support/faults.h"
#include "support/reports.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/wait.h>

namespace fs = std::filesystem;
using testing::ElementsAre;

static constexpr const char* path = "/var/log/conf_plugin.log";

static void grow_to(std::uintmax_t bytes) {
    std::ofstream(path, std::ios::app).flush();
    fs::resize_file(path, bytes);
}

TEST(Log, AdmitsMessagesUpToItsLevel) {
    const std::vector<std::string> all = {"NULL - 0", "CRIT - 1",  "ERROR - 2", "WARN - 3",
                                          "INFO - 4", "DEBUG - 5", "MSG - 6"};
    EXPECT_EQ(g_log_enable, 0);
    EXPECT_EQ(g_log_level, 0);
    // level, enable, result, and then: g_log_enable, g_log_level, how many levels are written
    constexpr int steps[][6] = {{4, 7, 0, 1, 4, 5}, {0, 1, 1, 1, 4, 5},  {8, 1, 1, 1, 4, 5},
                                {1, 1, 0, 1, 1, 2}, {7, -1, 0, 1, 7, 7}, {-3, 1, 0, 1, -3, 0},
                                {9, 0, 0, 0, 0, 0}};
    for (const auto& [level, enable, result, enabled, threshold, admitted] : steps) {
        EXPECT_EQ(econf_plugin_config_debug(level, enable), result);
        EXPECT_EQ(g_log_enable, enabled);
        EXPECT_EQ(g_log_level, threshold);
        for (const int of_message : {INT_MIN, -3, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, INT_MAX})
            _conf_write_log(of_message, "%d", of_message);
        EXPECT_EQ(fs::exists(path), admitted > 0);
        EXPECT_EQ(plugin_log(), std::vector(all.begin(), all.begin() + admitted));
    }
}

TEST(Log, WritesLocalTimeLevelAndText) {
    setenv("TZ", "XYZ-5:30", 1);
    tzset();
    econf_plugin_config_debug(DBG_ERROR, 1);
    const std::time_t before = std::time(nullptr);
    EXPECT_EQ(int{conf::plugin_failure("build %s failed", "hash_key")}, -1);
    std::ifstream file(path, std::ios::binary);
    const std::string line(std::istreambuf_iterator<char>(file), {});
    std::tm there{};
    EXPECT_STREQ(strptime(line.c_str(), "%F %T", &there), "[ERROR] - build hash_key failed\r\n");
    const std::time_t time = timegm(&there) - 19800;
    EXPECT_TRUE(before <= time && time <= std::time(nullptr));
    fs::remove(path);
}

TEST(Log, LeavesATextEmptyThatDoesNotFit) {
    econf_plugin_config_debug(DBG_ALL, 1);
    for (const int length : {255, 256, 100000})
        _conf_write_log(DBG_MSG, "%*s", length, "");
    EXPECT_THAT(plugin_log(), ElementsAre("MSG - " + std::string(255, ' '), "MSG - ", "MSG - "));
    constexpr void (*unchecked)(int, const char*, ...) = _conf_write_log;
    unchecked(DBG_MSG, nullptr);
    EXPECT_EQ(_conf_get_file_length(path), 0); // made, but without a line
    fs::remove(path);
    EXPECT_EQ(_conf_get_file_length(path), -1);
    EXPECT_EQ(_conf_get_file_length(nullptr), -1);
}

TEST(Log, IsDeletedBeyondTwoMebibytesAndKeepsErrno) {
    const auto write = [](int level) {
        errno = EXDEV;
        _conf_write_log(level, "line");
        EXPECT_EQ(errno, EXDEV);
    };
    econf_plugin_config_debug(DBG_INFO, 1);
    grow_to(0x200001);
    write(DBG_DEBUG);
    EXPECT_EQ(_conf_get_file_length(path), 0x200001);
    write(DBG_INFO);
    const fault no_file(call::fopen, EMFILE);
    write(DBG_INFO);
    EXPECT_THAT(plugin_log(), ElementsAre("INFO - line"));
    grow_to(0x200000);
    write(DBG_INFO);
    EXPECT_GT(_conf_get_file_length(path), 0x200000);
    fs::remove(path);
}

TEST(Log, NeverMixesTheLinesOfSeveralProcesses) {
    econf_plugin_config_debug(DBG_DEBUG, 1);
    const pid_t first = getpid();
    for (int generation = 0; generation < 2; ++generation) // so that there are four
        ASSERT_GE(fork(), 0);
    for (int line = 0; line < 1000; ++line)
        _conf_write_log(DBG_DEBUG, "%*d", 3 + line % 250, line);
    while (wait(nullptr) > 0)
        continue;
    if (getpid() != first)
        _exit(0);
    std::vector<std::string> expected, written = plugin_log();
    for (int line = 0; line < 4000; ++line)
        expected.push_back(text("DEBUG - %*d", 3 + line / 4 % 250, line / 4));
    std::ranges::sort(written);
    std::ranges::sort(expected);
    EXPECT_EQ(written, expected);
}
