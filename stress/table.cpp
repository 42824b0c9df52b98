#include "scenarios.h"

#include "check.h"
#include "conf_misc.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stress {
namespace {

constexpr int holders = 6;

conf_cli_info_t client(int key) {
    conf_cli_info_t record;
    std::memset(&record, 0, sizeof record);
    record.sshd_pid = key;
    record.cli_port = static_cast<unsigned int>(key) & 0xFFFF;
    record.addr_buf[0] = record.addr_buf[3] = ~static_cast<u32_t>(key);
    return record;
}

// Whether the table gives back what was put there for the key.
bool holds(int key) {
    const conf_cli_info_t expected = client(key);
    conf_cli_info_t found;
    return conf_get_client_info(key, &found) == 0 && found.valid == 1 &&
           found.sshd_pid == expected.sshd_pid && found.cli_port == expected.cli_port &&
           std::ranges::equal(found.addr_buf, expected.addr_buf);
}

// Stores, finds and drops an entry, over and over, until it is killed. What one that was killed has left
// goes first. The parent counts the rounds, and sees one in which something was wrong.
[[noreturn]] void hold(int key, long* rounds) {
    for (;; ++*rounds) {
        conf_free_client_info(key);
        conf_cli_info_t record = client(key);
        if (conf_save_client_info(&record) != 0 || !holds(key))
            _exit(1);
    }
}

pid_t start(int key, long* rounds) {
    const pid_t child = fork();
    if (child == 0)
        hold(key, rounds);
    return child;
}

} // namespace

void table(long kills) {
    require(conf_clishm_create(holders) == 0, "the table can be made");
    void* const shared = mmap(nullptr, holders * sizeof(long), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    require(shared != MAP_FAILED, "there is memory");
    auto* const rounds = static_cast<long*>(shared);
    std::array<pid_t, holders> all{};
    for (int i = 0; i < holders; ++i)
        all[static_cast<std::size_t>(i)] = start(i + 1, &rounds[i]);
    std::mt19937 random(1);
    for (long i = 0; i < kills + holders; ++i) {
        const std::size_t which =
            i < kills ? random() % holders : static_cast<std::size_t>(i - kills);
        if (i < kills)
            (void)poll(nullptr, 0, static_cast<int>(random() % 3)); // wherever it is by then
        int status = 0;
        (void)kill(all[which], SIGKILL);
        (void)waitpid(all[which], &status, 0);
        require(WIFSIGNALED(status), "none of them finds another's entry, or none");
        if (i < kills)
            all[which] = start(static_cast<int>(which) + 1, &rounds[which]);
    }
    long sum = 0;
    for (int i = 0; i < holders; ++i) {
        sum += rounds[i];
        conf_free_client_info(i + 1);
    }
    for (int key = 1; key <= holders; ++key) { // no lock is left behind, and no slot
        conf_cli_info_t record = client(key);
        require(conf_save_client_info(&record) == 0 && holds(key), "all slots can be used");
    }
    conf_clishm_destroy();
    std::printf("table: %d processes, %ld rounds, %ld killed\n", holders, sum, kills);
}

} // namespace stress
