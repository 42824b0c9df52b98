#include "clients.h"

#include "describe_process.h"
#include "profile.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sys/ipc.h>
#include <sys/sem.h>

namespace pelmsim {

namespace {

constexpr timespec lock_patience{1, 0};

int change_lock(int set, short by) {
    sembuf operation{0, by, SEM_UNDO};
    return semtimedop(set, &operation, 1, &lock_patience);
}

// As many slots as the segment has room for, whatever its count says.
void copy_slots(client_table& table, const char* segment) {
    std::memcpy(&table.count, segment, sizeof table.count);
    const std::size_t room =
        (table.segment.shm_segsz - sizeof table.count) / sizeof(conf_cli_info_t);
    table.slots.resize(std::min(room, static_cast<std::size_t>(std::max(table.count, 0))));
    std::memcpy(table.slots.data(), segment + sizeof table.count,
                table.slots.size() * sizeof(conf_cli_info_t));
}

void read_locked(client_table& table, const char* segment, int set) {
    const bool locked = set >= 0 && change_lock(set, -1) == 0;
    if (locked)
        table.lock = "free";
    else if (set < 0)
        table.lock = "missing";
    else
        table.lock = "held by process " + describe_process(semctl(set, 0, GETPID));
    table.lock_is_bad = !locked;
    copy_slots(table, segment);
    if (locked)
        (void)change_lock(set, 1);
}

std::string address_of(const conf_cli_info_t& client) {
    char text[INET6_ADDRSTRLEN] = "";
    (void)inet_ntop(client.ipv6 != 0 ? AF_INET6 : AF_INET, client.addr_buf, text, sizeof text);
    return text;
}

} // namespace

client_table read_client_table() {
    client_table table;
    const key_t key = ftok(profile_path, 0);
    if (key == -1) {
        table.missing = "its key is made from the profile, which is not there";
        return table;
    }
    const int segment = shmget(key, 0, 0);
    if (segment < 0) {
        table.missing = errno == ENOENT ? "nobody has created it" : std::strerror(errno);
        return table;
    }
    (void)shmctl(segment, IPC_STAT, &table.segment); // before this process counts as attached
    void* const address = shmat(segment, nullptr, SHM_RDONLY);
    if (reinterpret_cast<std::intptr_t>(address) == -1) {
        table.missing = std::strerror(errno);
        return table;
    }
    if (table.segment.shm_segsz < sizeof table.count)
        table.missing = "its segment is too small for anything";
    else
        read_locked(table, static_cast<const char*>(address), semget(key, 0, 0));
    (void)shmdt(address);
    return table;
}

int show_clients() {
    const client_table table = read_client_table();
    if (!table.missing.empty()) {
        (void)std::fprintf(stderr, "pelmsim: there is no table of clients: %s\n",
                           table.missing.c_str());
        return 1;
    }
    if (table.lock_is_bad)
        std::printf("read without its lock, which is %s\n", table.lock.c_str());
    for (std::size_t slot = 0; slot < table.slots.size(); ++slot)
        if (const conf_cli_info_t& client = table.slots[slot]; client.valid != 0)
            std::printf("slot %-4zu  process %-20s  %s port %u\n", slot,
                        describe_process(client.sshd_pid).c_str(), address_of(client).c_str(),
                        unsigned{client.cli_port});
    std::printf(
        "%td of %zu slots are in use\n",
        std::ranges::count_if(table.slots, [](const auto& slot) { return slot.valid != 0; }),
        table.slots.size());
    return 0;
}

} // namespace pelmsim
