#include "wire/line_input.h"
#include "wire/line_output.h"

#include "hand_clock.h"

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>

namespace pelmsim {
namespace {

struct pipe_ends {
    pipe_ends() {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        reading = unique_fd(ends[0]);
        writing = unique_fd(ends[1]);
    }
    void write(std::string_view text) const {
        EXPECT_EQ(::write(writing.get(), text.data(), text.size()), ssize_t(text.size()));
    }
    std::string read_all() const {
        std::string text;
        char bytes[4096];
        for (ssize_t count = 0; (count = read(reading.get(), bytes, sizeof bytes)) > 0;)
            text.append(bytes, static_cast<std::size_t>(count));
        return text;
    }
    unique_fd reading;
    unique_fd writing;
};

class Lines : public ::testing::Test {
protected:
    Lines() { (void)std::signal(SIGPIPE, SIG_IGN); }

    hand_clock time_;
    event_loop loop_{time_};
    pipe_ends pipe_;
    std::string loss_;
    line_output::loss lost_ = [this](const std::string& why) { loss_ += why; };
};

TEST_F(Lines, ComeOneByOneAndAtTheEndWithoutTheirs) {
    line_input lines(loop_, pipe_.reading.get(), 3);
    EXPECT_FALSE(lines.is_ready());
    pipe_.write("a\n\nbcd\nefghi\nj");
    EXPECT_TRUE(loop_.run_until([&] { return lines.is_ready(); }, milliseconds(1)));
    for (const char* line : {"a", "", "bcd", "efgh"})
        EXPECT_EQ(lines.take(), line);
    EXPECT_FALSE(lines.is_ready());
    pipe_.writing.reset();
    EXPECT_TRUE(lines.is_ready());
    EXPECT_EQ(lines.take(), "j");
    EXPECT_EQ(lines.take(), std::nullopt);
}

TEST_F(Lines, ThatHaveNoEndKeepNobodyFromEndingTheWait) {
    const unique_fd zeros(open("/dev/zero", O_RDONLY | O_CLOEXEC));
    line_input lines(loop_, zeros.get(), 5);
    EXPECT_FALSE(lines.is_ready());
    loop_.stop();
    const auto is_ready = [&] { return lines.is_ready(); };
    EXPECT_THROW(loop_.run_until(is_ready, milliseconds(1)), stopped);
}

TEST_F(Lines, AreKeptForAReaderThatIsSlow) {
    line_output lines(loop_, pipe_.writing.get(), milliseconds(1), lost_);
    const std::string much(std::size_t{1024} * 1024, 'x');
    lines.write(much);
    std::string came;
    fcntl(pipe_.reading.get(), F_SETFL, O_NONBLOCK);
    EXPECT_TRUE(loop_.run_until(
        [&] {
            came += pipe_.read_all();
            return came.size() == much.size();
        },
        milliseconds(1)));
    EXPECT_EQ(came, much);
    EXPECT_EQ(loss_, "");
}

TEST_F(Lines, AreLostWhenTheirReaderLeavesTooMuchOrDoesNotReadTheLast) {
    line_output lines(loop_, pipe_.writing.get(), milliseconds(1), lost_);
    lines.write(std::string(line_output::most_unread, 'x'));
    EXPECT_FALSE(lines.is_lost());
    for (int i = 0; i < 64; ++i)
        lines.write(std::string(4096, 'y'));
    EXPECT_EQ(loss_, "16781312 bytes are unread");
    EXPECT_TRUE(lines.is_lost());
    lines.finish();
    EXPECT_EQ(loss_, "16781312 bytes are unread");
}

} // namespace
} // namespace pelmsim
