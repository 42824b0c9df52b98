// The table of SSH clients in System V shared memory: a count, then that many records. A semaphore
// guards the records; when a process dies with the lock, the kernel gives it back.
#include "conf_misc.h"

#include "support/bounded.h"
#include "support/profile.h"
#include "support/report.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

using namespace conf;

// All processes of the device look at the same records, whatever built them.
static_assert(sizeof(conf_cli_info_t) == 24);
static_assert(alignof(conf_cli_info_t) == 4);
static_assert(offsetof(conf_cli_info_t, sshd_pid) == 0);
static_assert(offsetof(conf_cli_info_t, addr_buf) == 8);

namespace {

constexpr key_t no_key = -1;
constexpr int access_mode = 0660;
constexpr u32_t count_bytes = sizeof(int);
constexpr int max_slots = (UINT32_MAX - count_bytes) / sizeof(conf_cli_info_t);

// Between calls either everything is known or nothing is. A child made by fork() is attached when
// its parent was.
struct client_shm_info {
    int shmid;
    int semid;
    int num;
    u8_t* addr;
    conf_cli_info_t* info; // not null while the process is attached
};

constexpr client_shm_info detached{-1, -1, 0, nullptr, nullptr};
client_shm_info client_info = detached;

key_t table_key() noexcept { return ftok(profile_path, 0); }

bool map_segment() noexcept {
    void* segment = shmat(client_info.shmid, nullptr, 0);
    if (reinterpret_cast<std::intptr_t>(segment) == -1)
        return false;
    client_info.addr = static_cast<u8_t*>(segment);
    return true;
}

void unmap_segment() noexcept {
    if (client_info.addr != nullptr)
        (void)shmdt(client_info.addr);
}

void use_slots(int num) noexcept {
    void* const first = client_info.addr + count_bytes;
    client_info.num = num;
    client_info.info = static_cast<conf_cli_info_t*>(first);
}

// Takes the table as it is, unless its count promises slots beyond the end of the segment.
bool use_existing_slots() noexcept {
    int num;
    copy_from(num, client_info.addr);
    shmid_ds segment;
    if (shmctl(client_info.shmid, IPC_STAT, &segment) < 0)
        return false;
    const long long room = static_cast<long long>(segment.shm_segsz) - count_bytes;
    if (static_cast<long long>(sizeof(conf_cli_info_t)) * num > room) {
        errno = EINVAL;
        return false;
    }
    use_slots(num);
    return true;
}

int find_table() noexcept {
    const key_t key = table_key();
    if (key == no_key)
        return syslog_failure("[ERROR] Generated share memory key failed(%m).\n");
    client_info.shmid = shmget(key, 0, access_mode);
    if (client_info.shmid < 0)
        return syslog_failure("[ERROR] Get share memory of client-info failed(%m).\n");
    client_info.semid = semget(key, 0, access_mode);
    if (client_info.semid < 0)
        return syslog_failure("[ERROR] Get semaphore of client-info failed(%m).\n");
    if (!map_segment() || !use_existing_slots())
        return syslog_failure("[ERROR] Attach share memory of client-info failed(%m).\n");
    return 0;
}

void conf_clishm_dettach() noexcept {
    unmap_segment();
    client_info = detached;
}

// After a failure the lock cannot be had either, so nobody needs to look at the result.
void conf_clishm_attach() noexcept {
    if (find_table() < 0)
        conf_clishm_dettach();
}

// Out of line: in line it would cost each caller a stack guard, 96 bytes together.
[[gnu::noinline]] int move_semaphore(short step) noexcept {
    sembuf operation{.sem_num = 0, .sem_op = step, .sem_flg = SEM_UNDO};
    return semop(client_info.semid, &operation, 1);
}

bool conf_clishm_lock() noexcept {
    while (move_semaphore(-1) < 0) {
        if (errno == EINTR)
            continue;
        syslog_warning("[WARN] Try to lock share memory failed(%m).\n");
        return false;
    }
    return true;
}

void conf_clishm_unlock() noexcept {
    if (move_semaphore(1) < 0)
        syslog_warning("[WARN] Unlock share memory failed(%m).\n");
}

// The table for the time of one call: attached, unless the process is anyway, and locked.
class locked_table {
public:
    // In line, so that the object stays in registers: 56 bytes less.
    [[gnu::always_inline]] locked_table() noexcept : attached_here_(client_info.info == nullptr) {
        if (attached_here_)
            conf_clishm_attach();
        locked_ = conf_clishm_lock();
    }
    locked_table(const locked_table&) = delete;
    locked_table& operator=(const locked_table&) = delete;
    [[gnu::always_inline]] ~locked_table() {
        if (locked_)
            conf_clishm_unlock();
        if (attached_here_)
            conf_clishm_dettach();
    }

    // @return the first slot that fits, or null; null without the lock, too
    template <class Predicate> conf_cli_info_t* find(Predicate fits) const noexcept {
        for (int i = 0; locked_ && i < client_info.num; ++i)
            if (fits(client_info.info[i]))
                return &client_info.info[i];
        return nullptr;
    }

    conf_cli_info_t* find_entry(pid_t sshd_pid) const noexcept {
        return find([sshd_pid](const conf_cli_info_t& slot) {
            return slot.valid != 0 && slot.sshd_pid == sshd_pid;
        });
    }

private:
    bool attached_here_;
    bool locked_ = false;
};

bool store(const conf_cli_info_t& info) noexcept {
    const locked_table table;
    conf_cli_info_t* slot = table.find([](const conf_cli_info_t& s) { return s.valid == 0; });
    if (slot == nullptr)
        return false;
    conf_cli_info_t record;
    copy_from(record, &info);
    record.valid = 0;
    copy_from(*slot, &record);
    // Valid comes last: a process killed in here leaves a free slot, not half a record.
    std::atomic_signal_fence(std::memory_order_seq_cst);
    slot->valid = 1;
    return true;
}

bool look_up(pid_t sshd_pid, conf_cli_info_t* info) noexcept {
    const locked_table table;
    const conf_cli_info_t* entry = table.find_entry(sshd_pid);
    if (entry == nullptr)
        return false;
    copy_from(*info, entry);
    return true;
}

int create_segment(key_t key, int max_num) noexcept {
    const std::size_t bytes = count_bytes + sizeof(conf_cli_info_t) * static_cast<u32_t>(max_num);
    const int shmid = shmget(key, bytes, IPC_CREAT | IPC_EXCL | access_mode);
    if (shmid < 0)
        return syslog_failure("[ERROR] Allocate share memory for client-info failed(%m).\n");
    // A table that this process still holds has lost its key: the profile was replaced, or some
    // other process removed it.
    if (client_info.info != nullptr)
        conf_clishm_destroy();
    client_info.shmid = shmid;
    if (!map_segment())
        return syslog_failure("[ERROR] Attach share memory of client-info failed(%m).\n");
    return 0;
}

int create_semaphore(key_t key) noexcept {
    client_info.semid = semget(key, 1, IPC_CREAT | IPC_EXCL | access_mode);
    if (client_info.semid < 0)
        return syslog_failure("[ERROR] Allocate semaphore for client-info failed(%m).\n");
    const union {
        int val;
        semid_ds* buf; // gives the union the size that semctl() expects
    } unlocked{.val = 1};
    if (semctl(client_info.semid, 0, SETVAL, unlocked) < 0)
        return syslog_failure("[ERROR] Initailize semaphore for client-info failed(%m).\n");
    return 0;
}

int create_table(int max_num) noexcept {
    const key_t key = table_key();
    if (key == no_key)
        return syslog_failure("[ERROR] Generated share memory key failed(%m).\n");
    if (create_segment(key, max_num) < 0 || create_semaphore(key) < 0)
        return -1;
    (void)memcpy_s(client_info.addr, count_bytes, &max_num, sizeof max_num);
    use_slots(max_num);
    return 0;
}

} // namespace

int conf_clishm_create(int max_num) {
    if (max_num <= 0 || max_num > max_slots)
        return syslog_failure("[ERROR] Input parameter is not valid(num=%d).\n", max_num);
    const bool holds_table = client_info.info != nullptr;
    if (create_table(max_num) == 0)
        return 0;
    conf_clishm_destroy();
    if (holds_table) // which somebody else may have replaced: then it is theirs that is in the way
        conf_clishm_destroy();
    return -1;
}

void conf_clishm_destroy(void) {
    const key_t key = table_key();
    int semid = client_info.semid;
    if (semid == -1 && key != no_key)
        semid = semget(key, 0, access_mode);
    (void)semctl(semid, 0, IPC_RMID);
    unmap_segment();
    int shmid = client_info.shmid;
    if (shmid == -1 && key != no_key)
        shmid = shmget(key, 0, access_mode);
    (void)shmctl(shmid, IPC_RMID, nullptr);
    client_info = detached;
}

int conf_save_client_info(conf_cli_info_t* info) {
    if (info == nullptr)
        return syslog_failure("[ERROR] Input parameter is not valid.\n");
    if (!store(*info))
        return syslog_failure("[ERROR] Share memory for client info is full(%d).\n",
                              client_info.num);
    return 0;
}

void conf_free_client_info(pid_t sshd_pid) {
    const locked_table table;
    if (conf_cli_info_t* entry = table.find_entry(sshd_pid))
        entry->valid = 0;
}

int conf_get_client_info(pid_t sshd_pid, conf_cli_info_t* info) {
    if (info == nullptr)
        return syslog_failure("[ERROR] Input parameter is not valid.\n");
    if (!look_up(sshd_pid, info))
        return syslog_warning("[WARN] Get client info from sshd(%d) failed.\n", sshd_pid);
    return 0;
}
