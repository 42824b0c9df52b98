#include "engine.h"

#include "conf_plugin.h"
#include "support/faults.h"
#include "support/memory.h"
#include "support/reports.h"
#include "words.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <iterator>
#include <libxml/xmlerror.h>
#include <libxml/xmlversion.h>
#include <map>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace torture {
namespace {

constexpr unsigned int most_seconds = 60; // that a point takes, under an emulator, too
constexpr int unchanged = 0;              // leaves errno as it is

// What a call may plausibly fail with. All others run out of memory.
const std::map<call, std::vector<int>> errors_of_calls = {
    {call::bind, {EADDRINUSE}},
    {call::chown, {EPERM}},
    {call::connect, {ECONNREFUSED, EINTR, EAGAIN}},
    {call::epoll_create1, {EMFILE}},
    {call::epoll_ctl, {ENOSPC}},
    {call::epoll_wait, {EINTR, EBADF}},
    {call::fcntl, {EBADF}},
    {call::fopen, {EMFILE}},
    {call::fstat, {EIO}},
    {call::ftok, {ENOENT}},
    {call::getgrnam, {unchanged}},
    {call::getpwuid, {unchanged, EIO}},
    {call::listen, {EADDRINUSE}},
    {call::open, {ENOENT, EMFILE, EINTR}},
    {call::read, {ECONNRESET, EAGAIN}},
    {call::semctl, {EIDRM}},
    {call::semget, {EEXIST, ENOSPC}},
    {call::semop, {EINTR, EIDRM}},
    {call::sendto, {EAGAIN, EINTR, ECONNREFUSED}},
    {call::setsockopt, {ENOBUFS}},
    {call::shmctl, {EIDRM}},
    {call::shmget, {EEXIST, ENOSPC}},
    {call::socket, {EMFILE}},
    {call::stat, {EACCES}},
    {call::system, {EAGAIN}},
    {call::unlink, {EBUSY}},
    {call::write, {EPIPE, EAGAIN}},
};

const std::vector<int>& errors_of(call which) {
    static const std::vector<int> no_memory = {ENOMEM};
    const auto known = errors_of_calls.find(which);
    return known != errors_of_calls.end() ? known->second : no_memory;
}

// A use of a call, counted from the beginning of a run, and the error that it fails with.
struct point {
    std::size_t use;
    call which;
    int error;

    std::string text() const {
        const bool is_plain = errors_of(which).size() == 1;
        const char* const reason = error != unchanged ? strerrorname_np(error) : "unknown";
        return name_of(which) + (is_plain ? std::string() : std::string(" ") + reason);
    }
};

bool is_exposed = false;
std::size_t transfer = SIZE_MAX;
std::vector<call> uses;       // of this run, so far
std::optional<point> to_fail; // where this run is to fail

// What is left alone: a whole mapping of one's own cannot fail to go; and when the buffer into which
// xmlReadMemory() has copied a text cannot grow, libxml2 2.9.14 follows a null pointer.
bool is_spared(call which) {
    constexpr std::size_t grown_input_bytes = 8192;
    return which == call::munmap || (which == call::xml && wanted_bytes() == grown_input_bytes);
}

bool decide(call which) {
    if (!is_exposed || is_spared(which))
        return false;
    uses.push_back(which);
    if (!to_fail || uses.size() - 1 != to_fail->use)
        return false;
    EXPECT_EQ(name_of(which), name_of(to_fail->which)) << "each run begins alike";
    if (to_fail->error != unchanged)
        errno = to_fail->error;
    return true;
}

// What came of a step, and the uses of calls by its end.
struct told {
    std::string name;
    outcome came;
    std::string reports;
    int secrets; // that were given back as they were
    std::size_t uses;

    bool is_as(const told& other) const {
        return came == other.came && reports == other.reports && secrets == other.secrets;
    }
};

// What came of all steps, and whether blocks are left of it.
struct course {
    std::vector<told> steps;
    int kept = 0;
};

// Runs a scenario, and looks whether all else is again as it was before.
course run(const scenario& one, std::optional<point> failing = {}) {
    const block_watch blocks;
    const mapping_watch mappings;
    const std::ptrdiff_t descriptors = open_descriptors();
    (void)umask(027);
    uses.clear();
    to_fail = failing;
    transfer = one.transfer;
    course done;
    {
        const report_reader reports(one.is_logged);
        const secret_watch secrets;
        bool is_over = false;
        for (const step& each : one.begin()) {
            if (is_over && !each.is_last)
                continue;
            const outcome came = each.run();
            is_over = is_over || came.is_over;
            done.steps.push_back({each.name, came, reports.fresh(), secrets.texts(), uses.size()});
        }
    }
    EXPECT_TRUE(!failing || uses.size() > failing->use) << "the failure never came";
    to_fail.reset();
    xmlResetLastError();
    done.kept = blocks.kept();
    EXPECT_EQ(open_descriptors(), descriptors) << "descriptors were left open, or closed twice";
    EXPECT_EQ(umask(022), 027u);
    return done;
}

// What a step gave when it was disturbed, in one line; nothing, where it is as it would have been. What a
// failed step sent is told only where it is not what it sends ever.
std::string line_of(const point& failing, const told& disturbed, const told& whole) {
    if (disturbed.is_as(whole))
        return "";
    const std::string& sent = disturbed.came.sent;
    const bool has_value = disturbed.came.value == whole.came.value;
    std::string line = disturbed.name + " | " + failing.text() + " | ";
    line += has_value ? "as ever" : disturbed.came.value;
    if (sent != whole.came.sent && (has_value || !sent.empty()))
        line += " | sent " + (sent.empty() ? "nothing" : sent);
    if (disturbed.secrets != 0)
        line += " | a secret is left";
    return line + " | " + disturbed.reports;
}

// Whether a step that is not the one disturbed may give this: what it gave ever, or nothing.
bool is_harmless(const outcome& came, const outcome& whole) {
    return came == whole || (came.has_failed() && (came.sent.empty() || came.sent == whole.sent));
}

// Whether nobody learns that something went wrong.
bool is_silent(const told& disturbed, const told& whole) {
    return disturbed.came != whole.came && disturbed.reports.empty() &&
           disturbed.came.sent.find("<error>") == std::string::npos;
}

// Newer versions of libxml2 do not always say that they run out of memory, and free what there is of a tree
// themselves.
bool is_told_otherwise(call which) { return which == call::xml && LIBXML_VERSION >= 21300; }

// Up to the failure all is as ever. What comes of it then is known, and no later step succeeds otherwise
// than ever.
void compare(const course& disturbed, const course& whole, const point& failing, bool is_logged,
             known_outcomes& known) {
    auto expected = whole.steps.begin();
    for (const told& step : disturbed.steps) {
        for (; expected->name != step.name; ++expected) // left out
            continue;
        const bool is_behind =
            expected != whole.steps.begin() && std::prev(expected)->uses > failing.use;
        const bool is_before = expected->uses <= failing.use;
        const std::string line = line_of(failing, step, *expected);
        if (is_before)
            EXPECT_EQ(line, "") << "before the failure";
        else if (is_behind)
            EXPECT_TRUE(is_harmless(step.came, expected->came)) << line;
        else if (!line.empty() && !is_told_otherwise(failing.which))
            (void)known.note(line, step.secrets != 0 || (is_logged && is_silent(step, *expected)));
    }
}

// Every point at which a run may fail.
std::vector<point> points_of(const std::vector<call>& used) {
    std::vector<point> points;
    for (std::size_t use = 0; use < used.size(); ++use)
        for (const int error : errors_of(used[use]))
            points.push_back({use, used[use], error});
    return points;
}

bool has_complained_enough() {
    constexpr int most = 20;
    return testing::UnitTest::GetInstance()->ad_hoc_test_result().total_part_count() > most;
}

void try_point(const scenario& one, const point& failing, const course& whole,
               known_outcomes& known) {
    const block_watch blocks;
    const course disturbed = run(one, failing);
    compare(disturbed, whole, failing, one.is_logged, known);
    const auto step = std::ranges::find_if(
        whole.steps, [&](const told& each) { return each.uses > failing.use; });
    const std::string loss = step->name + " | " + failing.text() + " | blocks are lost";
    if (disturbed.kept != 0 && known.note(loss, true))
        blocks.free_kept();
    const testing::ScopedTrace trace(__FILE__, __LINE__, "afterwards");
    const course again = run(one);
    EXPECT_EQ(again.kept, 0);
    EXPECT_TRUE(std::ranges::equal(again.steps, whole.steps, &told::is_as));
}

} // namespace

exposure::exposure(bool is_exposed_now) : before_(is_exposed) {
    is_exposed = is_exposed_now;
    errno = EXDEV; // of something else
    limit_transfers(is_exposed ? transfer : SIZE_MAX);
    look_away(!is_exposed);
}

exposure::~exposure() {
    is_exposed = before_;
    limit_transfers(is_exposed ? transfer : SIZE_MAX);
    look_away(!is_exposed);
}

std::size_t try_points(const scenario& one, selection chosen, std::size_t* now) {
    judge(decide);
    (void)run(one); // makes what lasts
    const course whole = run(one);
    EXPECT_EQ(whole.kept + whole.steps.back().secrets, 0);
    const std::vector<point> points = points_of(uses);
    known_outcomes known(std::string(TORTURE_ROOM "/expected/") + one.name + ".txt");
    std::size_t count = 0;
    for (*now = chosen.from % chosen.every; *now < points.size() && !has_complained_enough();
         *now += chosen.every, ++count) {
        const point& failing = points[*now];
        const std::string place = "point " + std::to_string(*now) + ": " + failing.text();
        const testing::ScopedTrace trace(__FILE__, __LINE__, place);
        (void)alarm(most_seconds);
        try_point(one, failing, whole, known);
    }
    if (chosen.is_to_write)
        return known.write(), count;
    known.expect_known();
    if (chosen.every == 1 && !is_told_otherwise(call::xml) && !has_complained_enough())
        known.expect_all();
    judge(nullptr);
    return count;
}

} // namespace torture
