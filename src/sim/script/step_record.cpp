#include "script/step_record.h"

#include "model/xml.h"

#include <algorithm>

namespace pelmsim {
namespace {

// How many requests are kept, and how much of them.
constexpr std::size_t most_kept = 4096;
constexpr std::size_t most_bytes = std::size_t{16} * 1024 * 1024;

constexpr struct {
    const char* method;
    const char* kind;
    std::string (*how)(const xmlNode* params);
} methods[] = {
    {"pull", "pulled",
     [](const xmlNode* params) -> std::string {
         return find_child(params, "old") == nullptr ? "" : "old";
     }},
    {"push", "pushed", [](const xmlNode*) { return std::string(); }},
    {"config_deployment", "deployed",
     [](const xmlNode* params) { return child_text(params, "oper-type"); }},
    {"save_deployment", "deployed", [](const xmlNode*) { return std::string("save"); }},
    {"copy_deployment_to_memory", "deployed",
     [](const xmlNode* params) -> std::string {
         return child_text(params, "override") == "1" ? "override" : "copy";
     }},
};

std::string data_in(const xmlNode* params) {
    const xmlNode* const data = find_child(params, "data");
    return data == nullptr ? "" : compact(data->children);
}

std::size_t bytes_of(const plugin_request& request) {
    return request.plugin.size() + request.how.size() + request.path.size() + request.data.size();
}

} // namespace

std::optional<plugin_request> plugin_request_in(const event& what) {
    if (what.kind != event_kind::request || what.who.is != role::plugin ||
        what.way != direction::from_peer || what.body == nullptr)
        return std::nullopt;
    const auto* const known =
        std::ranges::find_if(methods, [&](const auto& each) { return what.method == each.method; });
    if (known == std::end(methods))
        return std::nullopt;
    return plugin_request{what.who.name, known->kind, known->how(what.body), what.path,
                          data_in(what.body)};
}

step_record::step_record(event_journal& events) : events_(events) { events_.add(*this); }

void step_record::begin(std::size_t notifications) {
    requests_.clear();
    bytes_ = 0;
    is_cut_ = false;
    notifications_ = notifications;
    log_ = end_of_plugin_log();
    unheard_.clear();
}

void step_record::take(const event& what) {
    if (what.kind == event_kind::outcome && what.result->result == verdict::unheard)
        unheard_ = what.result->describe();
    if (auto request = plugin_request_in(what))
        keep(std::move(*request));
}

void step_record::keep(plugin_request request) {
    bytes_ += bytes_of(request);
    requests_.push_back(std::move(request));
    while (requests_.size() > most_kept || bytes_ > most_bytes) {
        bytes_ -= bytes_of(requests_.front());
        requests_.pop_front();
        is_cut_ = true;
    }
}

} // namespace pelmsim
