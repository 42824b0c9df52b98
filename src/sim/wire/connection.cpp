#include "wire/connection.h"

#include "model/problem.h"
#include "model/xml.h"
#include "wire/process_state.h"

#include <conf_plugin.h>
#include <utility>

namespace pelmsim {
namespace {

constexpr milliseconds longest_turn{20}; // of one among others

} // namespace

connection::connection(event_journal& events, std::unique_ptr<faulty_channel> line,
                       connection_owner& owner)
    : events_(events), owner_(owner), line_(std::move(line)), process_(line_->other_end()) {}

void connection::start() {
    line_->start([weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->guarded([&] { self->on_ready(); });
    });
}

// A process of another namespace has no number here.
bool connection::has_lost_its_process() const {
    return is_open() && pid() > 0 && !read_process(pid()).lives();
}

std::string connection::describe_process() const {
    if (pid() <= 0)
        return "its process cannot be seen from here";
    return describe_state(pid()) + (has_lost_its_process() ? "; " + describe_holders() : "");
}

std::vector<pid_t> connection::holders() const {
    return is_open() ? line_->holders() : std::vector<pid_t>();
}

std::string connection::describe_holders() const {
    std::string all;
    for (const pid_t each : holders())
        all += (all.empty() ? "" : " and ") + describe_state(each, ", ");
    return "its connection is held open by " +
           (all.empty() ? "another one, which cannot be seen" : all);
}

// What goes wrong with one connection, if only memory, ends that one alone.
void connection::guarded(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& why) {
        end({cause::failure, 0, why.what()});
    }
}

// The one way that a connection ends but by its owner.
void connection::end(const defect& why) {
    if (!is_open())
        return;
    line_.reset();
    ended_ = why.why;
    unsent_.clear(); // before anything else, for it gives memory back
    count_held();
    events_.report({.kind = event_kind::closed,
                    .who = who(),
                    .why = why.why,
                    .count = why.count,
                    .text = why.text});
    owner_.gone(*this);
}

void connection::on_ready() {
    if (!keeps_back_)
        write_queue();
    owner_.heard_from(pid());
    const bool goes_on = has_more_ || receive();
    take_frames(); // also those that came just before the hang-up
    if (!goes_on && !has_more_)
        end({cause::by_peer});
}

// False once the peer has hung up.
bool connection::receive() {
    char bytes[65536];
    const auto count = line_->read(bytes);
    if (!count)
        return false;
    if (is_ending_)
        return true;
    received_.add({bytes, *count});
    count_held();
    return true;
}

// Those that take long are left for later, so that others have their turn.
void connection::take_frames() {
    has_more_ = false;
    const moment end = is_open() ? line_->now() + longest_turn : moment();
    while (is_open() && !is_ending_) {
        if (line_->now() > end) {
            has_more_ = true;
            return line_->call_soon();
        }
        auto next = received_.next();
        if (!next)
            return;
        count_held();
        if (next->garbage > 0)
            complain({cause::garbage, next->garbage});
        else
            deliver(std::move(*next));
    }
}

void connection::complain(const defect& what) {
    events_.report({.kind = event_kind::unreadable,
                    .who = who(),
                    .way = direction::from_peer,
                    .why = what.why,
                    .count = what.count,
                    .text = what.text});
}

void connection::deliver(arrival frame) {
    const msg_head_t header = frame.header;
    if (!frame.excess.empty())
        return on_unreadable({cause::excess, header.length, std::move(frame.excess)});
    unique_node body = std::move(frame.body);
    if (body == nullptr)
        return on_unreadable({cause::no_xml, header.length, std::move(frame.fault)});
    events_.report({.kind = event_kind::frame,
                    .who = who(),
                    .way = direction::from_peer,
                    .id = std::to_string(header.seq),
                    .body = body.get(),
                    .count = header.length});
    on_frame(std::move(body));
}

void connection::send(const xmlNode* body) {
    guarded([&] {
        if (body == nullptr) // it could not be built
            throw std::bad_alloc();
        send(body, compact_node(body));
    });
}

void connection::send(const xmlNode* body, const std::string& text) {
    if (!is_ending_)
        put(body, text);
}

void connection::put(const xmlNode* body, const std::string& text) {
    guarded([&] {
        if (queue_frame(body, text))
            write_queue();
    });
}

// A line that is about to end is struck no more.
std::optional<fault> connection::fault_of(const outgoing_frame& next) {
    if (!is_open() || is_ending_)
        return {};
    auto planted = owner_.fault_of(who(), next);
    if (!planted)
        return {};
    ++faults_;
    if (planted->kind == fault_kind::delay || planted->kind == fault_kind::deaf)
        held_up_.begin(line_->now(), planted->time);
    return planted;
}

void connection::send(const xmlNode* body, const std::optional<fault>& planted) {
    if (!planted || body == nullptr)
        return send(body);
    guarded([&] {
        if (is_open())
            send_faulty(body, compact_node(body), *planted);
    });
}

void connection::send_faulty(const xmlNode* body, const std::string& text, const fault& planted) {
    const std::size_t size = sizeof(msg_head_t) + text.size();
    switch (planted.kind) {
    case fault_kind::nothing:
        return;
    case fault_kind::closed:
    case fault_kind::restart:
        hang_up_behind(0, faulty_channel::stop::at_once);
        return owner_.befall(planted);
    case fault_kind::hang_up_before:
        return hang_up_behind(0, faulty_channel::stop::at_once);
    case fault_kind::hang_up_within:
        hang_up_behind(size / 2, faulty_channel::stop::at_once);
        break;
    case fault_kind::hang_up_after:
        hang_up_behind(size, faulty_channel::stop::once_read);
        break;
    case fault_kind::delay:
        line_->delay_at(sent(), planted.time.value_or(milliseconds(0)));
        break;
    default:
        break;
    }
    put(body, text);
    if (planted.kind == fault_kind::deaf && is_open())
        line_->be_deaf(planted.time, [weak = weak_from_this()] {
            if (const auto self = weak.lock())
                self->guarded([&] { self->line_->hear_again(); });
        });
}

// Lets so many more bytes be written, behind what is under way, and no others.
void connection::hang_up_behind(std::size_t count, faulty_channel::stop when) {
    is_ending_ = true;
    line_->stop_at(sent() + count, when, [weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->end({cause::fault});
    });
}

void connection::hear_again() {
    guarded([this] {
        if (is_open() && line_->hear_again())
            held_up_.end(line_->now());
    });
}

void connection::give_up() { end({cause::held, held()}); }

void connection::hang_up() {
    line_.reset();
    unsent_.clear();
    ended_ = cause::by_daemon;
    count_held();
}

void connection::count_held() {
    const std::size_t now = is_open() ? held() : 0;
    owner_.keeps(std::exchange(counted_, now), now);
}

void connection::keep_back(const xmlNode* body) {
    if (is_ending_)
        return;
    guarded([&] {
        if (body == nullptr)
            throw std::bad_alloc();
        keeps_back_ = queue_frame(body, compact_node(body));
    });
}

void connection::let_go() {
    guarded([this] { write_queue(); });
}

// False when the peer has left too much unread, and is hung up on.
bool connection::queue_frame(const xmlNode* body, const std::string& text) {
    if (text.size() > CONF_MSG_MAX_LENGTH)
        throw problem("a body of " + std::to_string(text.size()) + " bytes fits into no frame");
    if (!unsent_.has_room_for(text.size())) {
        end({cause::unread, unsent_.bytes() + sizeof(msg_head_t) + text.size()});
        return false;
    }
    const u16_t sequence = unsent_.add(text, keeps_back_);
    count_held();
    if (!is_open())
        return false;
    events_.report({.kind = event_kind::frame,
                    .who = who(),
                    .way = direction::to_peer,
                    .id = std::to_string(sequence),
                    .body = body,
                    .count = text.size()});
    return true;
}

// A peer that has gone is noticed by reading, which comes first for what it said before. One that
// only reads no more may stay.
void connection::write_queue() {
    keeps_back_ = false;
    while (is_open() && !unsent_.empty()) {
        const auto count = line_->write(unsent_.front());
        if (count == std::size_t{0})
            return;
        if (count)
            unsent_.written(*count);
        else
            unsent_.clear();
        count_held();
    }
}

} // namespace pelmsim
