#include "conf_misc.h"

#include "support/test.h"

#include <bit>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/shm.h>

namespace {

constexpr const char* profile = "/mnt/squash/local/etc/pelmd/pelmd.conf";

conf_cli_info_t record_of(int key, u32_t port, u32_t valid) {
    conf_cli_info_t record;
    std::memset(&record, 0x5A, sizeof record); // so that nameless bits are set too
    record.sshd_pid = key;
    record.valid = valid & 1;
    record.ipv6 = 1;
    record.cli_port = port & 0xFFFF;
    record.addr_buf[3] = ~static_cast<u32_t>(key);
    return record;
}

bool save(int key, u32_t port = 7) {
    conf_cli_info_t record = record_of(key, port, 0);
    return conf_save_client_info(&record) == 0;
}

// Whether the table gives back what save() has put there.
bool holds(int key, u32_t port = 7) {
    const conf_cli_info_t expected = record_of(key, port, 1);
    conf_cli_info_t found;
    return conf_get_client_info(key, &found) == 0 && bytes_of(found) == bytes_of(expected);
}

int segment() { return shmget(ftok(profile, 0), 0, 0); }
int semaphore() { return semget(ftok(profile, 0), 0, 0); }

// From the kernel's list: what an emulator makes of its answer to IPC_STAT may be laid out otherwise.
std::string mode_of(const std::string& kind, int id) {
    std::ifstream list("/proc/sysvipc/" + kind);
    std::string rest;
    std::getline(list, rest); // the headings
    int key = 0;
    int each = 0;
    std::string mode;
    while (list >> key >> each >> mode && each != id)
        std::getline(list, rest);
    return mode;
}

class Table : public testing::Test {
protected:
    Table() { std::ofstream(profile) << "{}"; }
    ~Table() override {
        conf_clishm_destroy();
        EXPECT_EQ(segment(), -1);
        EXPECT_EQ(semaphore(), -1);
        (void)captured_syslog();
    }
};

} // namespace

TEST_F(Table, LiesInSharedMemoryAsOthersReadIt) {
    ASSERT_EQ(conf_clishm_create(2), 0);
    ASSERT_TRUE(save(100, 0x8001));
    EXPECT_EQ(mode_of("shm", segment()), "660");
    EXPECT_EQ(mode_of("sem", semaphore()), "660");
    EXPECT_EQ(semctl(semaphore(), 0, GETVAL), 1);
    const auto* at = static_cast<char*>(shmat(segment(), nullptr, SHM_RDONLY));
    const std::string record = bytes_of(record_of(100, 0x8001, 1));
    EXPECT_EQ(std::string(at, 52), bytes_of(2) + record + std::string(24, '\0'));
    if (std::endian::native == std::endian::little) {
        // The nameless bits, the port's highest and lowest, ipv6, valid.
        EXPECT_EQ(std::string(at + 8, 4), bytes_of(0x5A5A0007u));
    }
    shmdt(at);
}

TEST_F(Table, IsThereUntilItsCreatorMakesAnother) {
    ASSERT_EQ(conf_clishm_create(2), 0);
    for (const int slots : {0, INT_MIN, 178956971}) {
        EXPECT_EQ(conf_clishm_create(slots), -1);
        expect_errors({text("Input parameter is not valid(num=%d).", slots)});
    }
    const int old_segment = segment();
    const int old_semaphore = semaphore();
    std::ofstream("/mnt/new") << "{}";
    fs::rename("/mnt/new", profile); // and with it the key
    EXPECT_EQ(conf_clishm_create(1), 0);
    EXPECT_EQ(shmat(old_segment, nullptr, 0), MAP_FAILED);
    EXPECT_EQ(semctl(old_semaphore, 0, GETVAL), -1);
}

TEST_F(Table, KeepsEntriesUntilItIsFull) {
    EXPECT_EXIT(_exit(conf_clishm_create(2)), testing::ExitedWithCode(0), "");
    EXPECT_TRUE(save(5, 1));
    EXPECT_TRUE(save(5, 2));
    EXPECT_FALSE(save(6));
    expect_errors({"Share memory for client info is full(0)."});
    EXPECT_TRUE(holds(5, 1));
    conf_free_client_info(5);
    EXPECT_TRUE(holds(5, 2));
    EXPECT_TRUE(save(6));
    EXPECT_TRUE(holds(6));
    conf_free_client_info(5);
    conf_free_client_info(5);
    EXPECT_FALSE(holds(5));
}

TEST_F(Table, OfAnotherProcessIsRemovedWhenItIsInTheWay) {
    const auto create_elsewhere = [] { conf_clishm_destroy(), _exit(conf_clishm_create(2)); };
    for (int held_here = 0; held_here < 2; ++held_here) {
        EXPECT_EXIT(create_elsewhere(), testing::ExitedWithCode(0), "");
        EXPECT_EQ(conf_clishm_create(2), -1);
        expect_errors({"Allocate share memory for client-info failed(File exists)."});
        EXPECT_EQ(conf_clishm_create(2), 0);
    }
}

TEST_F(Table, IsNotUsedUnlessAllOfItIsThere) {
    EXPECT_EXIT(_exit(conf_clishm_create(2)), testing::ExitedWithCode(0), "");
    int* const count = static_cast<int*>(shmat(segment(), nullptr, 0));
    const std::pair<const char*, std::function<void()>> failures[] = {
        {"Share memory for client info is full(0)", [=] { *count = -1; }},
        {"Attach share memory of client-info failed(Invalid argument)", [=] { *count = 3; }},
        {"Get semaphore of client-info failed(No such file or directory)",
         [] { semctl(semaphore(), 0, IPC_RMID); }},
        {"Get share memory of client-info failed(No such file or directory)",
         [] { shmctl(segment(), IPC_RMID, nullptr); }},
        {"Generated share memory key failed(No such file or directory)",
         [] { fs::remove(profile); }}};
    for (const auto& [words, spoil] : traced(failures)) {
        spoil();
        EXPECT_FALSE(save(5));
        EXPECT_FALSE(holds(5));
        conf_free_client_info(5);
        EXPECT_EQ(captured_syslog().front(), text("<11>[ERROR] %s.\n", words));
        shmid_ds memory{};
        EXPECT_TRUE(shmctl(segment(), IPC_STAT, &memory) == -1 || memory.shm_nattch == 1);
    }
    EXPECT_EQ(conf_clishm_create(2), -1);
    shmdt(count);
}
