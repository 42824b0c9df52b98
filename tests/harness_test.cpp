// What every other test relies on: the private world and the shared helpers.
#include "support/faults.h"
#include "support/peer.h"
#include "support/reports.h"

#include "support/report.h"
#include "support/xml.h"

#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>

namespace fs = std::filesystem;

TEST(PrivateWorld, HasEmptyPlacesThatCanBeWritten) {
    EXPECT_EQ(geteuid(), 0u);
    EXPECT_TRUE(fs::is_empty("/var/log"));
    EXPECT_TRUE(fs::is_empty("/var/tmp"));
    EXPECT_TRUE(fs::is_empty("/mnt/squash/local/etc/pelmd"));
    EXPECT_TRUE(fs::create_directory("/var/log/trace"));
}

TEST(Reports, AreCapturedOnceWithTheirPriority) {
    (void)conf::syslog_failure("[ERROR] %s of %d.\n", "one", 2);
    EXPECT_THAT(captured_syslog(), testing::ElementsAre("<11>[ERROR] one of 2.\n"));
    EXPECT_THAT(captured_syslog(), testing::IsEmpty());
}

TEST(Faults, ReachTheLibraryAndLibxml2OneByOne) {
    int allocations = 0;
    fail_each(call::xml, ENOMEM, [&](const fault& fault) {
        const conf::unique_node node{conf::new_element("a")};
        const bool built = node && conf::add_text(node.get(), "b", "text") != nullptr;
        EXPECT_EQ(built, !fault.hit());
        allocations += fault.hit() ? 1 : 0;
    });
    EXPECT_GT(allocations, 3);
}

TEST(Peer, CarriesFramesWholeAndSeesLeaks) {
    EXPECT_NONFATAL_FAILURE(
        {
            socket_pair ends;
            const descriptor_watch watch;
            ends = make_socket_pair();
            write_all(ends.peer.get(), frame_of("<rpc/>", 7) + frame_of("<reply/>"));
            const frame first = read_frame(ends.ours.get());
            EXPECT_EQ(first.seq, 7);
            EXPECT_EQ(first.body, "<rpc/>");
            EXPECT_EQ(read_frame(ends.ours.get()).body, "<reply/>");
        },
        "left open");
}
