#include "conf_misc.h"

#include "support/faults.h"
#include "support/reports.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;

constexpr const char* profile = "/mnt/squash/local/etc/pelmd/pelmd.conf";
const std::string no_lock = "<12>[WARN] Try to lock share memory failed(Invalid argument).\n";
const std::string not_found = "<12>[WARN] Get client info from sshd(5) failed.\n";
const std::string refused = "<11>[ERROR] Input parameter is not valid.\n";
const std::string full_0 = "<11>[ERROR] Share memory for client info is full(0).\n";
const std::string full_2 = "<11>[ERROR] Share memory for client info is full(2).\n";

std::string failed(const char* what, int error) {
    return text("<11>[ERROR] %s failed(%s).\n", what, strerror(error));
}

bool save(int key, u32_t port = 7) {
    const auto n = static_cast<u32_t>(key);
    const u32_t words[] = {n, 0x5A000002 | port << 2, n, 2, 3, ~n}; // nameless bits are set too
    conf_cli_info_t record;
    std::memcpy(&record, words, sizeof record);
    return conf_save_client_info(&record) == 0;
}

// Whether the table gives back what save() has put there.
bool holds(int key, u32_t port = 7) {
    const auto n = static_cast<u32_t>(key);
    conf_cli_info_t found;
    return conf_get_client_info(key, &found) == 0 && found.valid == 1 && found.ipv6 == 1 &&
           found.cli_port == port && found.addr_buf[0] == n && found.addr_buf[3] == ~n;
}

int segment() { return shmget(ftok(profile, 0), 0, 0); }
int semaphore() { return semget(ftok(profile, 0), 0, 0); }

// Runs in a process of its own, which inherits what this one has attached.
void start(const std::function<bool()>& run) {
    if (fork() == 0)
        _exit(run() ? 0 : 1);
}

// How many processes ended with which status.
std::map<int, int> ends() {
    std::map<int, int> result;
    for (int status = 0; wait(&status) > 0;)
        ++result[status];
    return result;
}

// This process is not attached afterwards.
void create_elsewhere(int slots) {
    start([=] { return conf_clishm_create(slots) == 0; });
    EXPECT_THAT(ends(), ElementsAre(std::pair{0, 1}));
}

// Stores, finds and drops an entry, over and over, and keeps the last one.
bool hammer(int key) {
    for (int i = 0; i < 300; ++i) {
        if (!save(key) || !holds(key))
            return false;
        conf_free_client_info(key);
    }
    return save(key);
}

bool die_with_lock() {
    const fault unlocking(call::semop, ENOMEM, 1);
    conf_free_client_info(0);
    return kill(getpid(), SIGKILL) == 0;
}

class Table : public testing::Test {
protected:
    Table() { std::ofstream(profile) << "{}"; }
    ~Table() override {
        std::ofstream(profile) << "{}";
        conf_clishm_destroy();
        EXPECT_TRUE(segment() == -1 && semaphore() == -1);
        (void)captured_syslog();
    }
};

} // namespace

TEST_F(Table, LiesInSharedMemoryAsOthersReadIt) {
    ASSERT_EQ(conf_clishm_create(2), 0);
    for (const int slots : {0, INT_MIN, 178956971}) {
        EXPECT_EQ(conf_clishm_create(slots), -1);
        EXPECT_EQ(captured_syslog().back(),
                  text("<11>[ERROR] Input parameter is not valid(num=%d).\n", slots));
    }
    ASSERT_TRUE(save(100, 0x8001));
    const auto* at = static_cast<u32_t*>(shmat(segment(), nullptr, SHM_RDONLY));
    EXPECT_THAT(std::vector(at, at + 13),
                ElementsAre(2, 100, 0x5A020007, 100, 2, 3, ~100u, 0, 0, 0, 0, 0, 0));
    shmdt(at);
}

TEST_F(Table, KeepsEntriesUntilItIsFull) {
    create_elsewhere(2);
    EXPECT_TRUE(save(5, 1) && save(5, 2) && !save(6) && holds(5, 1));
    EXPECT_EQ(conf_clishm_create(2), -1); // which removes the table that is there
    ASSERT_EQ(conf_clishm_create(2), 0);
    EXPECT_TRUE(save(5, 1) && save(5, 2) && !save(6) && holds(5, 1));
    conf_free_client_info(5);
    EXPECT_TRUE(holds(5, 2) && save(6) && holds(6));
    conf_free_client_info(5);
    conf_free_client_info(5);
    EXPECT_FALSE(holds(5));
    EXPECT_TRUE(conf_get_client_info(5, nullptr) == -1 && conf_save_client_info(nullptr) == -1);
    EXPECT_THAT(captured_syslog(),
                ElementsAre(full_0, failed("Allocate share memory for client-info", EEXIST), full_2,
                            not_found, refused, refused));
}

TEST_F(Table, LeavesNothingBehindWhenItCannotBeCreated) {
    const std::pair<call, const char*> steps[] = {
        {call::shmget, "Allocate share memory for client-info"},
        {call::shmat, "Attach share memory of client-info"},
        {call::semget, "Allocate semaphore for client-info"},
        {call::semctl, "Initailize semaphore for client-info"}};
    for (const auto& [which, what] : steps) {
        const fault one(which, ENOSPC);
        EXPECT_EQ(conf_clishm_create(3), -1);
        EXPECT_THAT(captured_syslog(), ElementsAre(failed(what, ENOSPC)));
        EXPECT_TRUE(segment() == -1 && semaphore() == -1);
    }
}

TEST_F(Table, IsNotUsedUnlessAllOfItIsThere) {
    create_elsewhere(2);
    int* const count = static_cast<int*>(shmat(segment(), nullptr, 0));
    *count = -1;
    EXPECT_FALSE(save(5));
    EXPECT_THAT(captured_syslog(), ElementsAre(full_0));
    const std::tuple<const char*, int, std::function<void()>> failures[] = {
        {"Attach share memory of client-info", EINVAL, [=] { *count = 3; }},
        {"Get semaphore of client-info", ENOENT, [] { semctl(semaphore(), 0, IPC_RMID); }},
        {"Get share memory of client-info", ENOENT, [] { shmctl(segment(), IPC_RMID, nullptr); }},
        {"Generated share memory key", ENOENT, [] { std::filesystem::remove(profile); }}};
    for (const auto& [what, error, spoil] : failures) {
        const std::string report = failed(what, error);
        spoil();
        EXPECT_FALSE(save(5) || holds(5));
        conf_free_client_info(5);
        EXPECT_THAT(captured_syslog(), ElementsAre(report, no_lock, full_0, report, no_lock,
                                                   not_found, report, no_lock));
        shmid_ds memory{};
        EXPECT_TRUE(shmctl(segment(), IPC_STAT, &memory) == -1 || memory.shm_nattch == 1);
    }
    EXPECT_EQ(conf_clishm_create(2), -1);
    EXPECT_THAT(captured_syslog(), ElementsAre(failed("Generated share memory key", ENOENT)));
    shmdt(count);
}

// The profile was replaced meanwhile, and with it the key.
TEST_F(Table, OutlivesSignalsAndGoesWithItsCreator) {
    ASSERT_EQ(conf_clishm_create(2), 0);
    const fault interrupted(call::semop, EINTR);
    EXPECT_TRUE(save(5) && interrupted.hit());
    const fault unlocking(call::semop, EIDRM, 1);
    EXPECT_TRUE(save(6));
    const int old_segment = segment();
    std::ofstream("/mnt/new") << "{}";
    std::filesystem::rename("/mnt/new", profile);
    start([] { return conf_clishm_destroy(), true; });
    EXPECT_THAT(ends(), ElementsAre(std::pair{0, 1}));
    shmid_ds memory;
    EXPECT_EQ(shmctl(old_segment, IPC_STAT, &memory), 0);
    EXPECT_NE(memory.shm_perm.mode & SHM_DEST, 0);
    EXPECT_FALSE(save(7));
    EXPECT_THAT(captured_syslog(),
                ElementsAre("<12>[WARN] Unlock share memory failed(Identifier removed).\n", no_lock,
                            full_2));
}

TEST_F(Table, LosesNothingWhenManyUseItAndSomeDieWithTheLock) {
    create_elsewhere(5);
    for (int key = 1; key < 5; ++key)
        start([=] { return hammer(key); });
    for (int victim = 0; victim < 10; ++victim)
        start(die_with_lock);
    EXPECT_THAT(ends(), ElementsAre(std::pair{0, 4}, std::pair{SIGKILL, 10}));
    EXPECT_TRUE(holds(1) && holds(2) && holds(3) && holds(4) && save(5) && !save(6));
}
