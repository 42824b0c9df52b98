#include "wire/process_state.h"

#include <gmock/gmock.h>
#include <sys/syscall.h>

namespace pelmsim {
namespace {

using ::testing::StartsWith;

// The rest of the line has 16 numbers up to that of the threads.
std::string stat_line(const std::string& begin, int threads) {
    return begin + " 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 " + std::to_string(threads) + " 0 99\n";
}

TEST(Processes, AreReadWhateverTheirNameHolds) {
    const process_state state = parse_process({.stat = stat_line("812 (a) Z (b) R", 1)});
    EXPECT_EQ(state.name, "a) Z (b");
    EXPECT_TRUE(state.lives());
    EXPECT_EQ(state.describe(), "running");
}

TEST(Processes, WaitForEventsInSomeCallsOnly) {
    process_files files{.stat = stat_line("812 (ntp) S", 3),
                        .system_call = std::to_string(SYS_ppoll) + " 0x0\n"};
    EXPECT_TRUE(parse_process(files).waits_for_events);
    EXPECT_EQ(parse_process(files).describe(), "asleep in ppoll, in its first thread");
    files.system_call = std::to_string(SYS_read) + " 0x0\n";
    EXPECT_FALSE(parse_process(files).waits_for_events);
}

TEST(Processes, SayWhatCannotBeRead) {
    process_files files{.stat = stat_line("812 (ntp) S", 1)};
    EXPECT_EQ(parse_process(files).describe(), "asleep; where, cannot be read");
    files.wait_channel = "0";
    EXPECT_EQ(parse_process(files).describe(), "asleep; where, cannot be read");
    files.wait_channel = "pipe_read";
    EXPECT_EQ(parse_process(files).describe(), "asleep in pipe_read");
}

TEST(Processes, AreGoneWhenNothingIsLeftToRun) {
    EXPECT_FALSE(parse_process({}).lives());
    EXPECT_EQ(parse_process({}).describe(), "gone");
    EXPECT_EQ(parse_process({.stat = stat_line("812 (ntp) Z", 1)}).describe(), "gone");
    EXPECT_EQ(parse_process({.stat = stat_line("812 (ntp) T", 1)}).describe(),
              "stopped by a signal");
    const process_state of_threads = parse_process({.stat = stat_line("812 (ntp) Z", 2)});
    EXPECT_TRUE(of_threads.lives());
    EXPECT_THAT(of_threads.describe(), StartsWith("at work in other threads"));
}

} // namespace
} // namespace pelmsim
