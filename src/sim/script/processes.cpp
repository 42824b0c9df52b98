#include "script/processes.h"

#include "model/problem.h"
#include "script/reports.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>

namespace pelmsim {
namespace {

constexpr milliseconds moment_to_end{2000}; // for the exit of one that leak checkers watch
constexpr milliseconds patience{5000};
// At once, of a program that may never stop printing; a terminal or a pipe holds no more.
constexpr int most_reads = 16;

constexpr std::size_t mebibyte = std::size_t{1024} * 1024;
constexpr std::size_t longest_line = mebibyte; // what is longer is parted
constexpr std::size_t most_kept = 32 * mebibyte;
constexpr std::size_t kept_of_more = most_kept / 2;
constexpr auto everybody = [](const process&) { return true; };

struct fd_pair {
    unique_fd ours;
    unique_fd theirs;
};

// A terminal, so that what the program prints comes line by line; a pipe where there is none.
fd_pair output_channel() {
    int ends[2];
    termios raw{};
    cfmakeraw(&raw);
    if (openpty(&ends[0], &ends[1], nullptr, &raw, nullptr) != 0 && pipe(ends) != 0)
        throw problem(std::string("cannot make a pipe: ") + std::strerror(errno));
    fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    fcntl(ends[1], F_SETFD, FD_CLOEXEC);
    return {unique_fd(ends[0]), unique_fd(ends[1])};
}

// In the child: never returns. What hinders it goes through the pipe.
[[noreturn]] void become(const std::vector<std::string>& words, int output, int complaint,
                         const process_table::mover& enter) {
    if (enter && !enter()) { // first, for it may take away what is set up for the parent's death
        (void)!write(complaint, &errno, sizeof errno);
        _exit(127);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    (void)signal(SIGPIPE, SIG_DFL); // ignored here, perhaps
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    (void)!write(complaint, &errno, sizeof errno);
    _exit(127);
}

} // namespace

outcome process::end() const { return outcome::ended(*status, describe_status(*status)); }

std::string process::complaint() const {
    const int how = status.value_or(0);
    const bool as_asked = asked_to_end && WIFSIGNALED(how) && WTERMSIG(how) == SIGTERM;
    if (!report.empty() || as_asked || !WIFSIGNALED(how))
        return report;
    return describe_status(how);
}

process_table::process_table(event_loop& loop, event_journal& events, const descriptor_limit& limit)
    : loop_(loop), events_(events), limit_(limit) {}

process_table::~process_table() {
    for (const process& each : all_)
        if (!each.status)
            (void)kill(-each.pid, SIGKILL);
}

void process_table::start(const std::vector<std::string>& words, std::string name,
                          const mover& enter) {
    fd_pair output = output_channel();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw problem(std::string("cannot make a pipe: ") + std::strerror(errno));
    unique_fd complaints(ends[0]);
    unique_fd complain(ends[1]);
    const pid_t pid = fork();
    if (pid == 0) {
        limit_.put_back();
        become(words, output.theirs.get(), complain.get(), enter);
    }
    if (pid < 0)
        throw problem(std::string("cannot start a process: ") + std::strerror(errno));
    complain.reset();
    if (int error = 0; read(complaints.get(), &error, sizeof error) == sizeof error) {
        (void)waitpid(pid, nullptr, 0);
        throw problem(
            "cannot run " + words[0] + ": " + std::strerror(error) +
            (error == ENOENT && !enter ? " (pelmsim run hides /mnt, /var/tmp and /var/log)" : ""));
    }
    (void)setpgid(pid, pid); // the child does so too: whoever comes first
    fcntl(output.ours.get(), F_SETFL, O_NONBLOCK);
    if (name.empty())
        name = words[0].substr(words[0].rfind('/') + 1);
    all_.push_back({pid, std::move(name), std::move(output.ours)});
    process& made = all_.back();
    loop_.watch(made.output.get(), POLLIN, [this, &made](short) { read_output(made); });
}

process* process_table::find(const std::string& name,
                             const std::function<bool(const process&)>& preferred) {
    process* found = nullptr;
    for (process& each : all_)
        if (each.name == name && (found == nullptr || preferred(each) || !preferred(*found)))
            found = &each;
    return found;
}

void process_table::reap() {
    int status = 0;
    for (pid_t pid = 0; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
        const auto ended = std::ranges::find_if(
            all_, [&](const process& each) { return each.pid == pid && !each.status; });
        if (ended != all_.end()) // otherwise one that a program has left behind
            has_ended(*ended, status);
    }
}

void process_table::has_ended(process& which, int status) {
    read_output(which); // what it said last comes before its end
    which.status = status;
    events_.report({.kind = event_kind::ended,
                    .who = {role::program, which.name, which.pid},
                    .code = status,
                    .good = which.complaint().empty()});
}

void process_table::read_output_of(pid_t pid) {
    process* const found = group_of(pid);
    if (found != nullptr && found->output)
        read_output(*found);
}

process* process_table::group_of(pid_t pid) {
    const pid_t group = getpgid(pid); // a shell may stand between
    const auto found =
        std::ranges::find_if(all_, [&](const process& each) { return each.pid == group; });
    return found == all_.end() ? nullptr : &*found;
}

void process_table::hung_up_on(pid_t pid) {
    if (process* const found = group_of(pid); found != nullptr)
        found->hung_up_on = true;
}

void process_table::stop(process& which) {
    if (which.status)
        return;
    which.asked_to_end = true;
    (void)kill(-which.pid, SIGTERM);
    if (loop_.run_until([&] { return which.status.has_value(); }, patience))
        return;
    (void)kill(-which.pid, SIGKILL);
    (void)loop_.run_until([&] { return which.status.has_value(); }, patience);
}

// Waits for those that the condition holds for.
void process_table::end_within(milliseconds limit,
                               const std::function<bool(const process&)>& concerned) {
    (void)loop_.run_until(
        [&] {
            return std::ranges::none_of(
                all_, [&](const process& each) { return !each.status && concerned(each); });
        },
        limit);
}

void process_table::end_all() {
    end_within(moment_to_end, [](const process& each) { return each.hung_up_on; });
    for (process& each : all_)
        if (!each.status) {
            each.asked_to_end = true;
            (void)kill(-each.pid, SIGTERM);
        }
    end_within(patience, everybody);
    kill_all();
}

void process_table::kill_all() {
    for (const process& each : all_)
        if (!each.status)
            (void)kill(-each.pid, SIGKILL);
    end_within(patience, everybody);
}

void process_table::read_output(process& from) {
    char bytes[4096];
    ssize_t count = 0;
    for (int i = 0; i < most_reads; ++i) {
        count = read(from.output.get(), bytes, sizeof bytes);
        if (count <= 0)
            break;
        take_output(from, {bytes, static_cast<std::size_t>(count)});
    }
    if (count > 0 || (count < 0 && errno == EAGAIN))
        return;
    if (!from.partial_line.empty())
        print_line(from);
    loop_.forget(from.output.get());
    from.output.reset();
}

void process_table::take_output(process& from, std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t room = longest_line - from.partial_line.size();
        const std::string_view piece = bytes.substr(0, std::min(bytes.find('\n'), room));
        from.partial_line += piece;
        bytes.remove_prefix(piece.size());
        const bool is_whole = bytes.starts_with('\n');
        bytes.remove_prefix(is_whole ? 1 : 0);
        if (is_whole || !bytes.empty())
            print_line(from);
    }
}

void process_table::print_line(process& from) {
    const std::string line = std::exchange(from.partial_line, {});
    if (from.report.empty() && is_report(line))
        from.report = line;
    output_ += line + "\n";
    if (output_.size() > most_kept) {
        const std::size_t count = output_.size() - kept_of_more;
        output_.erase(0, count);
        forgotten_ += count;
    }
    events_.report(
        {.kind = event_kind::output, .who = {role::program, from.name, from.pid}, .text = line});
}

} // namespace pelmsim
