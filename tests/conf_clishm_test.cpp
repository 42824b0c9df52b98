#include "conf_misc.h"

#include "support/faults.h"
#include "support/reports.h"

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* profile = "/mnt/squash/local/etc/pelmd/pelmd.conf";

std::string error(const std::string& words) { return "<11>[ERROR] " + words + ".\n"; }
std::string warning(const std::string& words) { return "<12>[WARN] " + words + ".\n"; }

const std::string no_lock = warning("Try to lock share memory failed(Invalid argument)");
const std::string not_found = warning("Get client info from sshd(5) failed");
const std::string full_0 = error("Share memory for client info is full(0)");
const std::string full_2 = error("Share memory for client info is full(2)");

// A record as it lies in memory.
using words = std::array<u32_t, 6>;

conf_cli_info_t* as_record(words& raw) { return reinterpret_cast<conf_cli_info_t*>(raw.data()); }

// Bits that have no name are set too.
words record_of(int key, u32_t valid) {
    const auto n = static_cast<u32_t>(key);
    return {n, 0x5A000000 | n << 2 | 2 | valid, n, 2, 3, ~n};
}

bool save(int key) {
    words record = record_of(key, 0);
    return conf_save_client_info(as_record(record)) == 0;
}

// Whether the table gives back every bit that save() has put there.
bool holds(int key) {
    words found{};
    return conf_get_client_info(key, as_record(found)) == 0 && found == record_of(key, 1);
}

int segment() { return shmget(ftok(profile, 0), 0, 0); }
int semaphore() { return semget(ftok(profile, 0), 0, 0); }

// Runs in a process of its own, which inherits what this one has attached.
pid_t start(const std::function<bool()>& run) {
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(60);
        _exit(run() ? 0 : 1);
    }
    return pid;
}

int result_of(pid_t pid) {
    int status = -1;
    waitpid(pid, &status, 0);
    return status;
}

// A table that this process is not attached to.
void create_elsewhere(int slots) {
    ASSERT_EQ(result_of(start([=] { return conf_clishm_create(slots) == 0; })), 0);
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

// Is killed while it holds the lock: the second half of the record to store cannot be read.
bool die_with_lock() {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* pages = mmap(nullptr, 2 * page, PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    char* edge = static_cast<char*>(pages) + page;
    void* record = std::memset(edge - sizeof(conf_cli_info_t) / 2, 1, sizeof(conf_cli_info_t) / 2);
    mprotect(edge, page, PROT_NONE);
    std::signal(SIGSEGV, [](int) { kill(getpid(), SIGKILL); });
    return conf_save_client_info(static_cast<conf_cli_info_t*>(record)) == 0;
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

TEST_F(Table, RefusesNumbersOfSlotsThatNoSegmentHas) {
    ASSERT_EQ(conf_clishm_create(1), 0);
    for (const int slots : {0, -1, INT_MIN, INT_MAX, 178956971}) {
        EXPECT_EQ(conf_clishm_create(slots), -1);
        EXPECT_THAT(captured_syslog(),
                    ElementsAre(error(text("Input parameter is not valid(num=%d)", slots))));
    }
    EXPECT_TRUE(save(1));
}

TEST_F(Table, LiesInSharedMemoryAsOthersReadIt) {
    ASSERT_EQ(conf_clishm_create(2), 0);
    ASSERT_TRUE(save(0x8001));
    shmid_ds memory;
    semid_ds lock;
    ASSERT_EQ(shmctl(segment(), IPC_STAT, &memory), 0);
    ASSERT_EQ(semctl(semaphore(), 0, IPC_STAT, &lock), 0);
    EXPECT_EQ(memory.shm_segsz, 52u);
    EXPECT_EQ(memory.shm_perm.mode & 0777u, 0660u);
    EXPECT_EQ(lock.sem_perm.mode & 0777u, 0660u);
    EXPECT_EQ(lock.sem_nsems, 1u);
    EXPECT_EQ(semctl(semaphore(), 0, GETVAL), 1);
    void* at = shmat(segment(), nullptr, 0);
    EXPECT_THAT(std::vector(static_cast<u32_t*>(at), static_cast<u32_t*>(at) + 13),
                ElementsAre(2, 0x8001, 0x5A020007, 0x8001, 2, 3, 0xFFFF7FFE, 0, 0, 0, 0, 0, 0));
    shmdt(at);
}

TEST_F(Table, IsFullForEachProcessWithTheNumberItKnows) {
    create_elsewhere(2);
    EXPECT_TRUE(save(100) && save(200) && !save(300));
    EXPECT_THAT(captured_syslog(), ElementsAre(full_0));
    EXPECT_EQ(conf_clishm_create(2), -1); // which removes the table that is there
    EXPECT_THAT(captured_syslog(),
                ElementsAre(error("Allocate share memory for client-info failed(File exists)")));
    ASSERT_EQ(conf_clishm_create(2), 0);
    EXPECT_TRUE(save(100) && save(200) && !save(300));
    EXPECT_THAT(captured_syslog(), ElementsAre(full_2));
    const auto is_attached = [] { return !save(1) && captured_syslog() == std::vector{full_2}; };
    EXPECT_EQ(result_of(start(is_attached)), 0);
    conf_free_client_info(100);
    EXPECT_TRUE(save(300) && holds(200) && holds(300));
}

TEST_F(Table, KeepsEntriesOfOneKeyApart) {
    ASSERT_EQ(conf_clishm_create(2), 0);
    words record = record_of(5, 1);
    record[2] = 7;
    EXPECT_TRUE(save(5) && conf_save_client_info(as_record(record)) == 0 && holds(5));
    conf_free_client_info(5);
    words found{};
    EXPECT_EQ(conf_get_client_info(5, as_record(found)), 0);
    EXPECT_EQ(found, record);
    conf_free_client_info(5);
    conf_free_client_info(5);
    EXPECT_THAT(captured_syslog(), IsEmpty());
    EXPECT_EQ(conf_get_client_info(5, as_record(found)), -1);
    EXPECT_EQ(conf_get_client_info(5, nullptr), -1);
    EXPECT_EQ(conf_save_client_info(nullptr), -1);
    EXPECT_THAT(captured_syslog(), ElementsAre(not_found, error("Input parameter is not valid"),
                                               error("Input parameter is not valid")));
}

TEST_F(Table, LeavesNothingBehindWhenItCannotBeCreated) {
    const std::pair<call, const char*> failures[] = {
        {call::shmget, "Allocate share memory for client-info failed(No space left on device)"},
        {call::shmat, "Attach share memory of client-info failed(No space left on device)"},
        {call::semget, "Allocate semaphore for client-info failed(No space left on device)"},
        {call::semctl, "Initailize semaphore for client-info failed(No space left on device)"},
    };
    for (const auto& [which, words] : failures) {
        const fault one(which, ENOSPC);
        EXPECT_EQ(conf_clishm_create(3), -1);
        EXPECT_THAT(captured_syslog(), ElementsAre(error(words)));
        EXPECT_TRUE(segment() == -1 && semaphore() == -1);
    }
    std::filesystem::remove(profile);
    EXPECT_EQ(conf_clishm_create(3), -1);
    EXPECT_THAT(captured_syslog(),
                ElementsAre(error("Generated share memory key failed(No such file or directory)")));
}

TEST_F(Table, IsNotUsedUnlessAllOfItIsThere) {
    create_elsewhere(2);
    int* const count = static_cast<int*>(shmat(segment(), nullptr, 0));
    for (const int none : {0, -1}) {
        *count = none;
        EXPECT_FALSE(save(5));
        EXPECT_THAT(captured_syslog(), ElementsAre(full_0));
    }
    const std::pair<const char*, std::function<void()>> failures[] = {
        {"Attach share memory of client-info failed(Invalid argument)", [=] { *count = 3; }},
        {"Attach share memory of client-info failed(Invalid argument)", [=] { *count = INT_MAX; }},
        {"Get semaphore of client-info failed(No such file or directory)",
         [] { semctl(semaphore(), 0, IPC_RMID); }},
        {"Get share memory of client-info failed(No such file or directory)",
         [] { shmctl(segment(), IPC_RMID, nullptr); }},
        {"Generated share memory key failed(No such file or directory)",
         [] { std::filesystem::remove(profile); }},
    };
    for (const auto& [words, spoil] : failures) {
        spoil();
        EXPECT_FALSE(save(5) || holds(5));
        conf_free_client_info(5);
        EXPECT_THAT(captured_syslog(), ElementsAre(error(words), no_lock, full_0, error(words),
                                                   no_lock, not_found, error(words), no_lock));
        shmid_ds memory{};
        memory.shm_nattch = 1;
        shmctl(segment(), IPC_STAT, &memory);
        EXPECT_EQ(memory.shm_nattch, 1u) << "besides this test's own";
    }
    shmdt(count);
}

TEST_F(Table, OutlivesSignalsAndReportsALockThatFails) {
    ASSERT_EQ(conf_clishm_create(2), 0);
    {
        const fault interrupted(call::semop, EINTR);
        EXPECT_TRUE(save(5) && interrupted.hit());
        EXPECT_THAT(captured_syslog(), IsEmpty());
    }
    const fault unlocking(call::semop, ENOMEM, 1);
    EXPECT_TRUE(save(6));
    EXPECT_THAT(captured_syslog(),
                ElementsAre(warning("Unlock share memory failed(Cannot allocate memory)")));
    EXPECT_EQ(result_of(start([] { return conf_clishm_destroy(), true; })), 0);
    EXPECT_FALSE(save(7));
    EXPECT_THAT(captured_syslog(), ElementsAre(no_lock, full_2));
}

TEST_F(Table, GoesWithItsCreatorAlthoughTheProfileWasReplaced) {
    for (const bool create_again : {true, false}) {
        ASSERT_EQ(conf_clishm_create(2), 0);
        const int first_segment = segment();
        const int first_semaphore = semaphore();
        std::ofstream("/mnt/new") << "{}";
        std::filesystem::rename("/mnt/new", profile); // and with it the key
        if (create_again)
            ASSERT_EQ(conf_clishm_create(2), 0);
        else
            conf_clishm_destroy();
        shmid_ds memory;
        EXPECT_EQ(shmctl(first_segment, IPC_STAT, &memory), -1);
        EXPECT_EQ(semctl(first_semaphore, 0, GETVAL), -1);
        conf_clishm_destroy();
    }
}

TEST_F(Table, LosesNothingWhenManyUseItAndSomeDieWithTheLock) {
    create_elsewhere(5);
    pid_t workers[4];
    for (int key = 1; pid_t & worker : workers)
        worker = start([k = key++] { return hammer(k); });
    for (int victims = 0; victims < 10; ++victims)
        EXPECT_EQ(result_of(start(die_with_lock)), SIGKILL);
    for (int key = 1; const pid_t worker : workers)
        EXPECT_TRUE(result_of(worker) == 0 && holds(key++));
    EXPECT_TRUE(save(5) && !save(6));
}
