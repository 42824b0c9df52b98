#include "conf_debug.h"

#include "support/report.h"

#include <cstdio>
#include <pthread.h>

using namespace conf;

namespace {

FILE* log_file;
pthread_mutex_t out_mutex; // guards output to log_file
bool mutex_is_live;

void close_log_file() noexcept {
    if (log_file != nullptr)
        (void)std::fclose(log_file);
    log_file = nullptr;
}

} // namespace

int conf_dbg_enable(int /*level*/, char* filename) {
    close_log_file();
    if (filename != nullptr) {
        log_file = std::fopen(filename, "a+e");
        if (log_file == nullptr)
            return syslog_failure("[ERROR] Open file failed(%m).\n");
    }
    if (!mutex_is_live) // a mutex in use must not be made again
        mutex_is_live = pthread_mutex_init(&out_mutex, nullptr) == 0;
    if (log_file != nullptr && !mutex_is_live) {
        close_log_file();
        return syslog_failure("[ERROR] Initial output mutex failed.\n");
    }
    return 0;
}

void conf_dbg_disable(void) {
    close_log_file();
    if (mutex_is_live)
        (void)pthread_mutex_destroy(&out_mutex);
    mutex_is_live = false;
}
