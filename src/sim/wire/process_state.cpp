#include "wire/process_state.h"

#include "journal/escaped.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/syscall.h>
#include <unistd.h>

namespace pelmsim {
namespace {

struct call_name {
    long number;
    const char* name;
    bool waits_for_events = false;
};

// Those that processes are usually found in. Younger architectures lack the older ones.
constexpr call_name calls[] = {
    {SYS_read, "read"},
    {SYS_write, "write"},
    {SYS_readv, "readv"},
    {SYS_writev, "writev"},
    {SYS_ioctl, "ioctl"},
    {SYS_flock, "flock"},
    {SYS_fsync, "fsync"},
    {SYS_connect, "connect"},
    {SYS_accept4, "accept4"},
    {SYS_recvfrom, "recvfrom"},
    {SYS_recvmsg, "recvmsg"},
    {SYS_sendto, "sendto"},
    {SYS_sendmsg, "sendmsg"},
    {SYS_wait4, "wait4"},
    {SYS_waitid, "waitid"},
    {SYS_futex, "futex"},
    {SYS_nanosleep, "nanosleep"},
    {SYS_clock_nanosleep, "clock_nanosleep"},
    {SYS_rt_sigsuspend, "rt_sigsuspend"},
    {SYS_rt_sigtimedwait, "rt_sigtimedwait"},
    {SYS_restart_syscall, "restart_syscall"},
    {SYS_ppoll, "ppoll", true},
    {SYS_pselect6, "pselect6", true},
    {SYS_epoll_pwait, "epoll_pwait", true},
#ifdef SYS_semop
    {SYS_semop, "semop"},
#endif
#ifdef SYS_pause
    {SYS_pause, "pause"},
#endif
#ifdef SYS_poll
    {SYS_poll, "poll", true},
#endif
#ifdef SYS_select
    {SYS_select, "select", true},
#endif
#ifdef SYS__newselect
    {SYS__newselect, "select", true},
#endif
#ifdef SYS_epoll_wait
    {SYS_epoll_wait, "epoll_wait", true},
#endif
#ifdef SYS_futex_time64
    {SYS_futex_time64, "futex"},
    {SYS_clock_nanosleep_time64, "clock_nanosleep"},
    {SYS_ppoll_time64, "ppoll", true},
    {SYS_pselect6_time64, "pselect6", true},
#endif
};

// A process may end while it is looked at: reading then fails, which iterators would throw.
std::optional<std::string> read_all(const std::string& name) {
    const std::ifstream file(name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (text.view().empty()) // what there is, is never empty
        return std::nullopt;
    return std::move(text).str();
}

// What tells architectures apart in a program file: its class, and its machine.
std::string kind_of_program(const std::string& process) {
    std::array<char, 20> header{};
    std::ifstream file("/proc/" + process + "/exe", std::ios::binary);
    file.read(header.data(), header.size());
    return {header[4], header[18], header[19]};
}

// "812 (name) S ...": a name may hold anything.
void parse_stat(const std::string& stat, process_state& state) {
    constexpr int between_letter_and_times = 10;
    constexpr int between_times_and_threads = 4;
    const std::size_t open = stat.find('(');
    const std::size_t close = stat.rfind(')');
    if (open == std::string::npos || close == std::string::npos)
        return;
    state.name = stat.substr(open + 1, close - open - 1);
    std::istringstream rest(stat.substr(close + 1));
    rest >> state.letter;
    std::string skipped;
    for (int i = 0; i < between_letter_and_times; ++i)
        rest >> skipped;
    std::int64_t user = 0;
    std::int64_t system = 0;
    rest >> user >> system;
    state.worked = milliseconds((user + system) * 1000 / sysconf(_SC_CLK_TCK));
    for (int i = 0; i < between_times_and_threads; ++i)
        rest >> skipped;
    rest >> state.threads;
}

// What stands behind the label, a number to that base; 0 when it is not there.
std::uint64_t number_in(const std::string& status, std::string_view label, int base) {
    const std::size_t found = status.find(label);
    if (found == std::string::npos)
        return 0;
    return std::strtoull(status.c_str() + found + label.size(), nullptr, base);
}

void parse_status(const std::string& status, process_state& state) {
    state.tracer = static_cast<pid_t>(number_in(status, "TracerPid:", 10));
    std::uint64_t harmless = 0;
    for (const char* label : {"SigBlk:", "SigIgn:", "SigCgt:"})
        harmless |= number_in(status, label, 16);
    state.is_ended_by_sigpipe =
        status.find("SigCgt:") != std::string::npos && (harmless >> (SIGPIPE - 1) & 1) == 0;
}

void parse_call(const std::string& text, bool is_ours, process_state& state) {
    if (text.empty() || text[0] < '0' || text[0] > '9') // it runs, or is in no call
        return;
    const long number = std::strtol(text.c_str(), nullptr, 10);
    const auto* const found =
        std::ranges::find_if(calls, [&](const call_name& each) { return each.number == number; });
    const bool is_known = is_ours && found != std::end(calls);
    state.where = is_known ? found->name : "system call " + std::to_string(number);
    state.waits_for_events = is_known && found->waits_for_events;
}

} // namespace

std::string process_state::describe() const {
    const std::string in = where.empty() ? "; where, cannot be read" : " in " + where;
    if (!lives())
        return "gone";
    switch (letter) {
    case 'X':
    case 'Z':
        return "at work in other threads than its first, which has ended";
    case 'R':
        return "running";
    case 'D':
        return "in a sleep that nothing interrupts" + in;
    case 'T':
        return "stopped by a signal";
    case 't':
        return "stopped by a debugger";
    default:
        return "asleep" + in + (threads > 1 ? ", in its first thread" : "");
    }
}

process_state parse_process(const process_files& files) {
    process_state state;
    if (files.stat)
        parse_stat(*files.stat, state);
    if (files.status)
        parse_status(*files.status, state);
    if (files.system_call)
        parse_call(*files.system_call, files.calls_are_ours, state);
    else if (files.wait_channel && *files.wait_channel != "0")
        state.where = *files.wait_channel;
    return state;
}

process_state read_process(pid_t pid) {
    const std::string process = std::to_string(pid);
    const auto read = [&](const char* name) { return read_all("/proc/" + process + "/" + name); };
    return parse_process({.stat = read("stat"),
                          .status = read("status"),
                          .system_call = read("syscall"),
                          .wait_channel = read("wchan"),
                          .calls_are_ours = kind_of_program(process) == kind_of_program("self")});
}

// Each thread has a list of those that it made.
bool has_children(pid_t pid) {
    std::error_code gone;
    const std::filesystem::path threads = "/proc/" + std::to_string(pid) + "/task";
    for (std::filesystem::directory_iterator each(threads, gone), end; !gone && each != end;
         each.increment(gone))
        if (read_all(each->path() / "children"))
            return true;
    return false;
}

std::string describe_state(pid_t pid, const char* link) {
    const process_state state = read_process(pid);
    return "process " + std::to_string(pid) +
           (state.name.empty() ? "" : " (" + escaped(state.name) + ")") + link + state.describe();
}

} // namespace pelmsim
