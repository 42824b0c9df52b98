/* No library's loop, but poll(): also how an adapter to another loop begins. */
#define _GNU_SOURCE /* ppoll */
#include "loop.h"

#include <pelmconf/adapters/watch.h>
#include <poll.h>
#include <signal.h>
#include <time.h>

static struct pelmconf_watch watch;
static int is_attached;
static struct timespec due; /* when on_time is to be called */
static void (*on_time)(void);
static volatile sig_atomic_t is_ending;
static int is_stopped;

static void terminated(int number) {
    (void)number;
    is_ending = 1;
}

/* @return what is left until the timer's time; a negative second when it has come */
static struct timespec time_left(void) {
    struct timespec now;
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    struct timespec left = {due.tv_sec - now.tv_sec, due.tv_nsec - now.tv_nsec};
    if (left.tv_nsec < 0) {
        left.tv_sec--;
        left.tv_nsec += 1000000000L;
    }
    return left;
}

static void call_timer(void) {
    void (*then)(void) = on_time;
    on_time = NULL;
    then();
}

/* Waits for the daemon, the timer and signals, and serves the first two. */
static void turn(const sigset_t* while_waiting) {
    struct pollfd ready = {.fd = is_attached ? watch.fd : -1, .events = POLLIN};
    struct timespec left = time_left();

    if (on_time != NULL && left.tv_sec < 0)
        call_timer();
    else if ((is_attached && pelmconf_watch_is_due(&watch)) ||
             ppoll(&ready, 1, on_time != NULL ? &left : NULL, while_waiting) > 0)
        pelmconf_watch_step(&watch);
}

int loop_run(void (*begin)(void), void (*end)(void)) {
    sigset_t ending;
    sigset_t while_waiting;

    (void)signal(SIGTERM, terminated);
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigprocmask(SIG_BLOCK, &ending, &while_waiting); /* it comes while waiting, or not at all */
    begin();
    while (!is_stopped) {
        turn(&while_waiting);
        if (is_ending)
            end();
    }
    if (is_attached)
        pelmconf_watch_step(&watch); /* the plugin was closed */
    return 0;
}

static void release(void* adapter) {
    (void)adapter;
    pelmconf_watch_close(&watch);
    is_attached = 0;
}

int loop_attach(void (*on_lost)(void)) {
    if (is_attached)
        release(NULL); /* a callback has closed the plugin, and registered it anew */
    is_attached = pelmconf_watch_open(&watch, on_lost, release, NULL) == 0;
    return is_attached ? 0 : -1;
}

void loop_asked(void) {}

void loop_after(int ms, void (*then)(void)) {
    on_time = then;
    (void)clock_gettime(CLOCK_MONOTONIC, &due);
    due.tv_sec += ms / 1000;
    due.tv_nsec += ms % 1000 * 1000000L;
    if (due.tv_nsec >= 1000000000L) {
        due.tv_sec++;
        due.tv_nsec -= 1000000000L;
    }
}

void loop_stop(void) { is_stopped = 1; }
