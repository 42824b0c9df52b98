// Mistakes of plugins that only their log tells of, where one has turned that on.
#pragma once

#include "script/plugin_log.h"
#include "script/warning.h"
#include "wire/loop.h"

#include <functional>

namespace pelmsim {

class log_watch {
public:
    using finder = std::function<void(const peer& who, warning what)>;

    // Tells the finder of each, perhaps more than once.
    log_watch(event_loop& loop, finder found) : loop_(loop), found_(std::move(found)) {}
    log_watch(const log_watch&) = delete;
    log_watch& operator=(const log_watch&) = delete;
    ~log_watch() = default;

    void take(const event& what);

    // Reads on.
    void look();

private:
    void look_again();
    void read_line(const std::string& line);
    void answered(const event& request);

    event_loop& loop_;
    finder found_;
    log_place seen_ = end_of_plugin_log();
    std::string last_result_; // of a configuration callback, as the log has it
    std::string left_error_;  // that a kick-off has found
    timer next_look_;
    bool is_looking_ = false;
};

} // namespace pelmsim
