// The daemon that a plugin's callbacks are tested with.
#pragma once

#include "hooks.h"
#include "seat.h"

#include "daemon/plan.h"

#include <functional>
#include <optional>

namespace pelmtest {

// How a request came out.
struct result {
    pelmtest_outcome_t outcome = PELMTEST_OK;
    int code = 0;                  // of an error
    std::string text = {};         // of an error, or why it is no success
    unique_node answer = {};       // holds the data
    const xmlNode* data = nullptr; // that came: the first of its nodes
};

std::string describe(const result& which);

class kit {
public:
    // The tables of the older API are of the same shape. Throws problem.
    kit(api version, const econf_plugin_subpub_info_t& tables);

    requests& asked() { return asked_; } // what the plugin asked, and its trees
    void note_notifications();
    void forget();

    void give(const pelmsim::data_path& path, const std::string& xml);

    // These throw problem when it is the test that is wrong.
    result recover(int bits);
    result set(const pelmsim::data_path& path, const std::string& xml);
    result add(const pelmsim::data_path& path, const std::string& xml);
    result remove(const pelmsim::data_path& path);
    result publish(const pelmsim::data_path& path, int oper);
    result status(const pelmsim::data_path& path, const std::string& filter);
    result operate(const pelmsim::data_path& path, const std::string& input);
    result kick_off();

private:
    using plan = pelmsim::publication_plan;

    template <class Entry> void enter(pelmsim::serves kind, const Entry* entries);
    seat& here();
    std::vector<pelmsim::subscriber> subscribers();
    const pelmsim::registration* server_of(pelmsim::serves kind, const pelmsim::data_path& path);

    result change(const std::function<void(pelmsim::tree&)>& edit);
    result ask(const char* method, unique_node params);
    result tell(const pelmsim::publication& what);
    result tell_all(const plan& all, bool until_refused, std::size_t& told);

    const api version_;
    std::vector<econf_subpub_cb_t> callbacks_;
    std::vector<pelmsim::registration> registrations_;
    requests asked_;
    std::unique_ptr<seat> seat_;
};

} // namespace pelmtest
