// The plugins that are connected.
#pragma once

#include "daemon/peer_table.h"
#include "daemon/plugin.h"

#include <set>

namespace pelmsim {

// Whoever answers what plugins ask.
class request_handler {
public:
    virtual std::optional<reply> serve(plugin& from, const std::string& method,
                                       const xmlNode* params, const arranged_answer* instead) = 0;

protected:
    ~request_handler() = default;
};

class plugin_table final : public peer_table<plugin> {
public:
    plugin_table(event_loop& loop, event_journal& events, surroundings around,
                 request_handler& handler);

    // Whether requests arrive in the same read as the answers before them; otherwise never.
    void join_requests(bool joined) { joined_ = joined; }

    std::shared_ptr<plugin> find(const std::string& name) const; // registered, or null

    // Whether one of that name was registered, and is not now.
    bool has_gone(const std::string& name) const {
        return names_.contains(name) && find(name) == nullptr;
    }

private:
    static constexpr std::size_t most_names = 65536;

    event_loop& loop() override { return watched_by(); }
    bool joins_requests() const override { return joined_; }
    bool is_debugged(pid_t pid) override { return around().is_debugged(pid); }
    bool is_taken(const std::string& name) const override { return find(name) != nullptr; }
    void has_registered(const std::string& name) override {
        if (names_.size() < most_names)
            names_.insert(name);
    }
    std::size_t weight_of_all_paths() const override;
    std::optional<reply> serve(plugin& from, const std::string& method, const xmlNode* params,
                               const arranged_answer* instead) override {
        return handler_.serve(from, method, params, instead);
    }

    request_handler& handler_;
    bool joined_ = false;
    std::set<std::string> names_; // of all that were ever here, but for a peer that makes up many
};

} // namespace pelmsim
