// The daemon's ends of a plugin's connection and of the notifier's socket.
#pragma once

#include "model/owners.h"

#include <mutex>
#include <pthread.h>
#include <string>
#include <vector>

namespace pelmtest {

using pelmsim::unique_fd;
using pelmsim::unique_node;

// A body with its header.
std::string frame_of(const xmlNode* body);

// A thread reads what arrives, so that neither a long answer nor many notifications wait for room. It
// never wakes anybody: who wants to know reads, too, under the same lock, and has all that was sent.
class catcher {
public:
    explicit catcher(unique_fd daemon_end); // throws problem
    catcher(const catcher&) = delete;
    catcher& operator=(const catcher&) = delete;
    ~catcher();

    // Leads notifications here, again where something has led them elsewhere.
    void lead_notifications() const;

    unique_node take_answer(); // null when there is none
    std::vector<std::string> take_notifications();

private:
    void open_notifier();
    void start();
    void read_until_told();
    void read_all();
    void read_connection();
    void read_notifications();
    void answer_request();

    const pid_t process_;
    const std::string standing_place_;
    const unique_fd daemon_end_;
    unique_fd notifier_;
    unique_fd notifier_file_; // by which the socket is found
    unique_fd stop_;
    pthread_t reader_{};
    std::mutex lock_;
    bool has_hung_up_ = false;
    std::string received_;
    std::vector<std::string> notifications_;
};

} // namespace pelmtest
