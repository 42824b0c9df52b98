#include "daemon/plugin.h"

#include "daemon/explain.h"
#include "daemon/faults.h"
#include "journal/escaped.h"
#include "journal/wording.h"
#include "model/xml.h"
#include "wire/answer.h"

#include <algorithm>
#include <conf_plugin.h>

namespace pelmsim {
namespace {

constexpr u32_t last_message_id = 65535;
constexpr std::size_t longest_subject = 1000; // that is kept; a peer may send ten millions
constexpr u32_t far_off = 32768;              // of an id that nobody will use soon
constexpr milliseconds most_to_read{1000};    // before the next request goes out all the same
constexpr milliseconds most_kept_back{200};   // of an answer, for a request to go out with it

u32_t behind(u32_t id, u32_t count) { return (id + count - 1) % last_message_id + 1; }

bool is_wrong(const std::optional<fault>& planted) {
    return planted && planted->kind == fault_kind::wrong_id;
}

} // namespace

peer plugin::who() const { return {role::plugin, name_, pid(), !name_.empty()}; }

void plugin::register_as(const std::string& name, std::vector<registration> registrations) {
    name_ = name;
    owner_.has_registered(name);
    registrations_ = std::move(registrations);
    for (const registration& each : registrations_)
        weight_of_paths_ += each.path.weight();
}

void plugin::let_it_read(milliseconds limit) {
    event_loop& loop = owner_.loop();
    const auto read = [this] { return is_read(); };
    const moment end = loop.now() + std::min(limit, most_to_read);
    while (!read() && loop.now() < end)
        (void)loop.run_until(read, milliseconds(1)); // nothing tells of it
}

// Why there is no answer, once the wait for it is over.
const char* plugin::why_none() const {
    if (!is_open())
        return was_ended_by_peer() ? "hang-up" : "pelmsim hung up";
    return owner_.loop().was_cancelled() ? "cancelled" : "time-out";
}

// Whether it is waiting, as far as it can be seen, for an answer that it was not given.
// Whatever it is sent then begins its library's limit anew.
bool plugin::waits_itself() {
    const moment now = owner_.loop().now();
    if (!last_asked_ || !last_asked_->waits || now - last_asked_->quiet_since >= library_limit)
        return false;
    last_asked_->quiet_since = now;
    return true;
}

void plugin::end_own_wait() {
    if (!last_asked_ || !std::exchange(last_asked_->waits, false))
        return;
    const moment now = owner_.loop().now();
    if (now - last_asked_->quiet_since >= library_limit)
        events().report({.kind = event_kind::explanation,
                         .who = who(),
                         .text = escaped(label()) + " has waited " +
                                 time_in_words(now - last_asked_->at) + " for an answer to " +
                                 escaped(last_asked_->subject) +
                                 ": its library's own limit of 30 s has ended that"});
}

// What all events of a request to the plugin say of it.
event plugin::about(const question& what, event_kind kind) const {
    return {.kind = kind,
            .who = who(),
            .way = direction::to_peer,
            .method = what.method,
            .called = what.called,
            .id = std::to_string(awaited_id_),
            .path = what.path,
            .operation = what.operation};
}

void plugin::announce(const question& what, const xmlNode* params) {
    event asked = about(what, event_kind::asked);
    asked.body = params;
    asked.text = waits_itself() ? last_asked_->subject : "";
    events().report(std::move(asked));
}

u32_t plugin::next_id() { return last_id_ = behind(last_id_, 1); }

outcome plugin::ask(question what, milliseconds limit) {
    if (!owner_.joins_requests())
        let_it_read(limit);
    event_loop& loop = owner_.loop();
    const moment begin = loop.now();
    awaited_id_ = next_id();
    answer_.reset();
    const auto held_up_before = held_up(begin);
    const auto planted = fault_of({.is_answer = false,
                                   .method = what.method,
                                   .id = std::to_string(awaited_id_),
                                   .is_served = is_active()});
    const xmlNode* const params = what.params.get();
    const unique_node rpc(
        plugin_build_rpc_message(what.method.c_str(), what.params.release(),
                                 behind(awaited_id_, is_wrong(planted) ? far_off : 0)));
    announce(what, rpc == nullptr ? nullptr : params);
    send(rpc.get(), planted);
    loop.run_until([this] { return answer_ || !is_open(); }, limit,
                   [this] { return owner_.is_debugged(pid()); });
    const bool is_late = !answer_ && is_open() && !loop.was_cancelled();
    if (!answer_)
        answer_ = outcome::no_answer(why_none());
    event answered = about(what, event_kind::request);
    awaited_id_ = 0;
    answered.result = &*answer_;
    const moment end = loop.now();
    const auto by_faults = held_up(end) - held_up_before;
    answered.took = std::max(end - begin - by_faults, moment::duration());
    events().report(std::move(answered));
    if (is_late && !planted && by_faults == moment::duration()) // faults have been told of
        events().report({.kind = event_kind::explanation,
                         .who = who(),
                         .text = explain_time_out(*this, begin, limit, owner_.joins_requests())});
    return *std::exchange(answer_, std::nullopt);
}

void plugin::on_frame(unique_node body) {
    if (local_name(body.get()) == "reply")
        on_answer(std::move(body));
    else
        on_request(body.get());
}

void plugin::on_answer(unique_node answer) {
    end_own_wait();
    const u32_t id = plugin_get_msgid(answer.get());
    if (awaited_id_ != 0 && id == awaited_id_ && !answer_)
        answer_ = read_answer(std::move(answer));
    else if (!take_planted(id, answer))
        events().report({.kind = event_kind::stray_answer,
                         .who = who(),
                         .way = direction::from_peer,
                         .id = std::to_string(id)});
}

void plugin::on_request(xmlNode* rpc) {
    const char* method = nullptr;
    xmlNode* params = nullptr;
    if (local_name(rpc) != "rpc" || plugin_parse_rpc(rpc, &method, &params) < 0)
        return on_unreadable({cause::no_parameters, 0, local_name(rpc)});
    end_own_wait();
    const u32_t id = plugin_get_msgid(rpc);
    const auto planted = fault_of({.is_answer = true,
                                   .method = method,
                                   .id = std::to_string(id),
                                   .name = name_.empty() ? child_text(params, "plugin-name") : "",
                                   .is_served = is_active() || method == std::string("activate")});
    const auto instead = instead_of_answer(planted);
    auto answer = owner_.serve(*this, method, params, instead ? &*instead : nullptr);
    const event served{.kind = event_kind::request,
                       .who = who(),
                       .way = direction::from_peer,
                       .method = method,
                       .id = std::to_string(id),
                       .path = child_text(params, "path"),
                       .result = answer ? &answer->result : nullptr,
                       .body = params};
    const moment now = owner_.loop().now();
    last_asked_ = {subject_of(served).substr(0, longest_subject), now, !answer || is_wrong(planted),
                   now};
    events().report(served);
    if (!answer)
        return;
    const unique_node message(plugin_build_reply_message(
        answer->body.release(), is_wrong(planted) ? behind(id, far_off) : id));
    give_answer(message.get(), id, planted);
}

void plugin::give_answer(const xmlNode* message, u32_t id, const std::optional<fault>& planted) {
    if (!planted)
        return send_answer(message);
    if (planted->kind == fault_kind::own_id)
        send_kick_off(id);
    if (planted->kind != fault_kind::joined)
        return send(message, planted);
    keep_back(message);
    planted_ids_.push_back(next_id());
    send_kick_off(planted_ids_.back());
}

void plugin::send_kick_off(u32_t id) {
    const unique_node rpc(plugin_build_rpc_message("kickoff", new_element("params").release(), id));
    send(rpc.get());
}

// Whether it answers one of those kick-offs.
bool plugin::take_planted(u32_t id, unique_node& answer) {
    const auto found = std::ranges::find(planted_ids_, id);
    if (found == planted_ids_.end())
        return false;
    planted_ids_.erase(planted_ids_.begin(), found + 1); // one that was dropped before goes, too
    const outcome how = read_answer(std::move(answer));
    events().report({.kind = event_kind::request,
                     .who = who(),
                     .way = direction::to_peer,
                     .method = "kickoff",
                     .id = std::to_string(id),
                     .result = &how});
    return true;
}

// What it asks for during a request, that request has to wait for.
void plugin::send_answer(const xmlNode* message) {
    if (!owner_.joins_requests() || !is_active() || awaited_id_ != 0)
        return send(message);
    keep_back(message);
    let_go_ = owner_.loop().after(most_kept_back, [this] {
        const auto self = shared_from_this(); // it may be hung up on
        let_go();
    });
}

void plugin::on_unreadable(const defect& what) {
    complain(what);
    if (awaited_id_ != 0 && !answer_)
        answer_ = outcome::no_answer("unreadable frame");
}

} // namespace pelmsim
