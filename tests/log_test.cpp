#include "conf_plugin/log.h"

#include "conf_api.h"
#include "support/test.h"

#include <ctime>

static constexpr const char* path = "/var/log/conf_plugin.log";

TEST(Log, AdmitsMessagesUpToItsLevel) {
    const std::vector<std::string> all = {"NULL - 0", "CRIT - 1",  "ERROR - 2", "WARN - 3",
                                          "INFO - 4", "DEBUG - 5", "MSG - 6"};
    // level, enable, result, and then: g_log_enable, g_log_level, how many levels are written
    constexpr int steps[][6] = {{4, 7, 0, 1, 4, 5}, {0, 1, 1, 1, 4, 5},  {8, 1, 1, 1, 4, 5},
                                {1, 1, 0, 1, 1, 2}, {7, -1, 0, 1, 7, 7}, {-3, 1, 0, 1, -3, 0},
                                {9, 0, 0, 0, 0, 0}};
    for (const auto& [level, enable, result, enabled, threshold, admitted] : traced(steps)) {
        EXPECT_EQ(econf_plugin_config_debug(level, enable), result);
        EXPECT_TRUE(g_log_enable == enabled && g_log_level == threshold);
        for (const int of_message : {INT_MIN, -3, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, INT_MAX})
            _conf_write_log(of_message, "%d", of_message);
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
    EXPECT_EQ(_conf_get_file_length(path), -1);
}

TEST(Log, IsDeletedBeyondTwoMebibytesAndKeepsErrno) {
    econf_plugin_config_debug(DBG_INFO, 1);
    std::ofstream(path).flush();
    for (const int size : {0x200000, 0x200001}) {
        fs::resize_file(path, static_cast<std::uintmax_t>(size));
        _conf_write_log(DBG_DEBUG, "unwanted");
        EXPECT_EQ(_conf_get_file_length(path), size);
        errno = EXDEV;
        _conf_write_log(DBG_INFO, "line");
        EXPECT_EQ(errno, EXDEV);
        EXPECT_EQ(_conf_get_file_length(path) > size, size == 0x200000);
    }
    EXPECT_THAT(plugin_log(), ElementsAre("INFO - line"));
}

TEST(Log, NeverMixesTheLinesOfSeveralProcesses) {
    econf_plugin_config_debug(DBG_DEBUG, 1);
    for (const char letter : {'a', 'b', 'c', 'd'}) {
        if (fork() != 0)
            continue;
        for (int i = 0; i < 1000; ++i)
            _conf_write_log(DBG_DEBUG, "%s", std::string(255, letter).c_str());
        _exit(0);
    }
    while (wait(nullptr) > 0)
        continue;
    std::map<std::string, int> count;
    for (const std::string& line : plugin_log())
        ++count[line];
    for (const char letter : {'a', 'b', 'c', 'd'})
        EXPECT_EQ(count["DEBUG - " + std::string(255, letter)], 1000);
}
