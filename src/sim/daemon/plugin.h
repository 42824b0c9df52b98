// One plugin that is connected: what it registered, and requests to and from it.
#pragma once

#include "daemon/arrangements.h"
#include "daemon/registration.h"
#include "daemon/reply.h"
#include "wire/connection.h"
#include "wire/loop.h"

#include <conf_def.h>
#include <deque>
#include <optional>
#include <vector>

namespace pelmsim {

class plugin;

// The daemon's side of a plugin.
class plugin_owner : public connection_owner {
public:
    virtual event_loop& loop() = 0;
    virtual bool is_taken(const std::string& name) const = 0;
    virtual void has_registered(const std::string& name) = 0;
    virtual std::size_t weight_of_all_paths() const = 0; // that are registered

    // Whether a request is to arrive in the same read as the answer before it; otherwise it never
    // does.
    virtual bool joins_requests() const = 0;

    // Whether a debugger is at work on that process, so that no limit is to end a wait for it.
    virtual bool is_debugged(pid_t pid) = 0;

    // Nothing when its request is to be left without an answer. With something instead, that is all
    // it gets.
    virtual std::optional<reply> serve(plugin& from, const std::string& method,
                                       const xmlNode* params, const arranged_answer* instead) = 0;

protected:
    ~plugin_owner() = default;
};

// What a plugin is asked.
struct question {
    std::string method;
    unique_node params;
    std::string called = {};           // what users call it, where the method is another word
    std::string path = {};             // that it is about
    std::optional<int> operation = {}; // the bits of a publication
};

// What a plugin has asked itself.
struct own_request {
    std::string subject;
    moment at;
    bool waits;         // for an answer, which it was not given
    moment quiet_since; // as long as it waits: nothing has been sent to it
};

class plugin : public connection {
public:
    using owner_type = plugin_owner;

    plugin(event_journal& events, std::unique_ptr<faulty_channel> line, plugin_owner& owner)
        : connection(events, std::move(line), owner), owner_(owner) {}

    peer who() const override;
    const std::string& name() const { return name_; } // empty until it registers
    bool is_active() const { return active_ && is_open() && !is_ending(); }
    const std::vector<registration>& registrations() const { return registrations_; }

    bool may_register_as(const std::string& name) const {
        return name_.empty() && !owner_.is_taken(name);
    }
    void register_as(const std::string& name, std::vector<registration> registrations);
    std::size_t weight_of_paths() const { return weight_of_paths_; }
    std::size_t weight_of_all_paths() const { return owner_.weight_of_all_paths(); }
    void activate(bool active) { active_ = active; }

    const std::optional<own_request>& last_asked() const { return last_asked_; }
    moment now() const { return owner_.loop().now(); }

    // Serves events until it has read what was sent, for a second at most.
    void let_it_read(milliseconds limit);

    // Sends a request, once what was sent before has been read or has had its time, and serves
    // events until it is answered, the connection ends or the time is up.
    outcome ask(question what, milliseconds limit);

protected:
    void on_frame(unique_node body) override;
    void on_unreadable(const defect& what) override;

private:
    void on_request(xmlNode* rpc);
    const char* why_none() const;
    event about(const question& what, event_kind kind) const;
    void announce(const question& what, const xmlNode* params);
    u32_t next_id();
    void give_answer(const xmlNode* message, u32_t id, const std::optional<fault>& planted);
    void send_kick_off(u32_t id);
    bool take_planted(u32_t id, unique_node& answer);
    bool waits_itself();
    void end_own_wait();
    void send_answer(const xmlNode* message);
    void on_answer(unique_node answer);

    plugin_owner& owner_;
    std::string name_;
    bool active_ = false;
    std::vector<registration> registrations_;
    std::size_t weight_of_paths_ = 0;
    u32_t last_id_ = 0;
    u32_t awaited_id_ = 0; // 0 while nothing is awaited
    std::optional<outcome> answer_;
    std::optional<own_request> last_asked_;
    timer let_go_;                    // of an answer that is kept back
    std::deque<u32_t> planted_ids_{}; // of kick-offs that faults have sent
};

} // namespace pelmsim
