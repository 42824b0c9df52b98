#define _GNU_SOURCE
#include "drive.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

void give_up(const char* step) {
    (void)fprintf(stderr, "bench: %s failed (%s)\n", step, strerror(errno));
    exit(1);
}

static double seconds(clockid_t clock) {
    struct timespec now;
    must(clock_gettime(clock, &now) == 0, "clock_gettime");
    return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

static void pin(const char* cpu) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(strtoul(cpu, NULL, 10), &one);
    must(sched_setaffinity(0, sizeof one, &one) == 0, "sched_setaffinity");
}

// publish, asleep, pull, input or operate, with ":BYTES" behind it for other than the usual size.
static struct load load_of(const char* mode, const char* name, long requests) {
    const char* const bytes = strchr(name, ':');
    return (struct load){.mode = mode,
                         .bytes = bytes != NULL ? strtoul(bytes + 1, NULL, 10) : 300,
                         .asleep = strncmp(name, "asleep", 6) == 0,
                         .pull = strncmp(name, "pull", 4) == 0,
                         .operate =
                             strncmp(name, "operate", 7) == 0 || strncmp(name, "input", 5) == 0,
                         .hands_back = strncmp(name, "operate", 7) == 0,
                         .requests = requests};
}

static void on_child(int signal_number) {
    static const char reason[] = "bench: the plugin has ended early\n";
    (void)signal_number;
    (void)!write(STDERR_FILENO, reason, sizeof reason - 1);
    _exit(1);
}

// Runs this program again as the plugin, behind the words of BENCH_WRAP if there are any. It ends only
// once leash is closed: some libraries look for a hang-up before they look for the last answer.
static pid_t start_plugin(char** argv, char* total, char* directory, int* leash) {
    int ends[2];
    must(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
    *leash = ends[1];
    const pid_t child = fork();
    must(child >= 0, "fork");
    if (child > 0)
        return child;
    (void)dup2(ends[0], STDIN_FILENO);
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    pin(argv[5]);
    char* words[32] = {NULL};
    size_t count = 0;
    char* const wrap = getenv("BENCH_WRAP");
    for (char* word = wrap != NULL ? strtok(wrap, " ") : NULL; word != NULL && count < 20;
         word = strtok(NULL, " "))
        words[count++] = word;
    char program[4096] = "";
    must(readlink("/proc/self/exe", program, sizeof program - 1) > 0, "readlink");
    char role[] = "serve";
    char* const rest[] = {program, argv[1], argv[2], total, role, directory};
    memcpy(words + count, rest, sizeof rest);
    execvp(words[0], words);
    give_up(words[0]);
}

static int earlier(const void* left, const void* right) {
    const double difference = *(const double*)left - *(const double*)right;
    return (difference > 0) - (difference < 0);
}

// In KiB: VmHWM, the most that was ever resident; RssFile, pages of program files.
static long memory_of(pid_t plugin, const char* kind) {
    char path[64];
    char line[256];
    long kib = 0;
    const size_t length = strlen(kind);
    (void)snprintf(path, sizeof path, "/proc/%d/status", (int)plugin);
    FILE* status = fopen(path, "re");
    must(status != NULL, path);
    while (fgets(line, sizeof line, status) != NULL)
        if (strncmp(line, kind, length) == 0)
            kib = strtol(line + length, NULL, 10);
    (void)fclose(status);
    return kib;
}

// Asks count times and prints, in one line: requests per second, the median and the 99th percentile
// in microseconds, CPU time of both sides per request, and the plugin's peak memory in KiB,
// first all that was resident and then without the pages of program files, which processes share.
static void measure(const struct load* load, long count, pid_t plugin) {
    double* taken = calloc((size_t)count, sizeof *taken);
    clockid_t plugin_clock = 0;
    must(taken != NULL && clock_getcpuclockid(plugin, &plugin_clock) == 0, "preparing");
    const double own = seconds(CLOCK_PROCESS_CPUTIME_ID);
    const double others = seconds(plugin_clock);
    double sum = 0;
    for (long done = 0; done < count; ++done) {
        if (load->asleep)
            (void)nanosleep(&(struct timespec){.tv_nsec = 300000}, NULL);
        const double start = seconds(CLOCK_MONOTONIC);
        ask();
        taken[done] = seconds(CLOCK_MONOTONIC) - start;
        sum += taken[done];
    }
    const double n = (double)count;
    const double daemon_us = (seconds(CLOCK_PROCESS_CPUTIME_ID) - own) / n * 1e6;
    const double plugin_us = (seconds(plugin_clock) - others) / n * 1e6;
    qsort(taken, (size_t)count, sizeof *taken, earlier);
    const long peak = memory_of(plugin, "VmHWM:");
    printf("%.1f %.3f %.3f %.3f %.3f %ld %ld\n", n / sum, taken[count / 2] * 1e6,
           taken[count * 99 / 100] * 1e6, daemon_us, plugin_us, peak,
           peak - memory_of(plugin, "RssFile:"));
    free(taken);
}

// PROGRAM MODE LOAD COUNT CPU-OF-DAEMON CPU-OF-PLUGIN
int main(int argc, char** argv) {
    must(argc == 6, "usage");
    const long count = strtol(argv[3], NULL, 10);
    if (strcmp(argv[4], "serve") == 0) {
        const struct load load = load_of(argv[1], argv[2], count);
        serve(&load, argv[5]);
        char nothing;
        return read(STDIN_FILENO, &nothing, 1) == 0 ? 0 : 1;
    }
    // A tenth to warm up; and one more at the end, for which the plugin stays to be looked at.
    const long warm_up = count / 10 + 1;
    const struct load load = load_of(argv[1], argv[2], warm_up + count + 1);
    char total[32];
    (void)snprintf(total, sizeof total, "%ld", load.requests);
    char directory[] = "/tmp/pelmbench.XXXXXX";
    must(mkdtemp(directory) != NULL && chdir(directory) == 0, "mkdtemp");
    pin(argv[4]);
    open_door(&load, directory);
    (void)signal(SIGCHLD, on_child);
    int leash = -1;
    const pid_t plugin = start_plugin(argv, total, directory, &leash);
    meet(&load);
    for (long done = 0; done < warm_up; ++done)
        ask();
    measure(&load, count, plugin);
    (void)signal(SIGCHLD, SIG_DFL);
    ask();
    (void)close(leash);
    int status = 0;
    must(waitpid(plugin, &status, 0) == plugin && status == 0, "the plugin");
    (void)fflush(stdout);
    (void)execlp("rm", "rm", "-r", directory, (char*)NULL);
    return 1;
}
