// What has happened since the present step began, for expectations to look back at.
#pragma once

#include "journal/journal.h"
#include "script/plugin_log.h"

#include <deque>
#include <string>

namespace pelmsim {

// What a plugin asked of the daemon, whatever it was answered.
struct plugin_request {
    std::string plugin; // its name, empty before it has registered
    std::string kind;   // "pulled", "pushed" or "deployed"
    std::string how;    // "old", of a pull; what is to be done to the deployment: "add", "save"
    std::string path;   // as it came
    std::string data;   // XML in one line
};

// What the event tells of a plugin's asking, if it does.
std::optional<plugin_request> plugin_request_in(const event& what);

// A step is a command that does something, and all that happens until the next of these; what comes
// before the first of them is one, too.
class step_record final : event_sink {
public:
    explicit step_record(event_journal& events);
    step_record(const step_record&) = delete;
    step_record& operator=(const step_record&) = delete;
    ~step_record() { events_.remove(*this); }

    // From here on another step, with so many notifications before it.
    void begin(std::size_t notifications);

    // What plugins asked for: the last requests, as many as there is room for.
    const std::deque<plugin_request>& requests() const { return requests_; }
    bool is_cut() const { return is_cut_; } // there were more

    // What came before this step: notifications, and lines of the log.
    std::size_t notifications() const { return notifications_; }
    const log_place& log() const { return log_; }

    // How the step's command came out when nobody was concerned; otherwise empty.
    const std::string& unheard() const { return unheard_; }

private:
    void take(const event& what) override;
    void keep(plugin_request request);

    event_journal& events_;
    std::deque<plugin_request> requests_;
    std::size_t bytes_ = 0;
    bool is_cut_ = false;
    std::size_t notifications_ = 0;
    log_place log_ = end_of_plugin_log();
    std::string unheard_;
};

} // namespace pelmsim
