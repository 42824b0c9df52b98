#include "script/timeline.h"

#include "journal/wording.h"
#include "model/xml.h"
#include "script/listing.h"

#include <algorithm>
#include <cstdio>

namespace pelmsim {
namespace {

constexpr std::size_t most_kept = 4096;
constexpr std::size_t most_text = 400; // of one line
constexpr std::size_t longest_round = 6;

constexpr const char* goes_out = "-->";
constexpr const char* comes_in = "<--";
constexpr const char* dropped_here = "x--";
constexpr const char* dropped_there = "--x";
constexpr const char* none_came = "---";
constexpr const char* broken = "-!-";

struct line {
    const char* arrow;
    std::string what;
    std::string detail = {};
};

std::string numbered(const event& what) { return "#" + what.id; }

std::string took(const event& what) {
    if (!what.took)
        return "";
    char text[32];
    (void)std::snprintf(text, sizeof text, "(%.1f ms)", what.took->count());
    return text;
}

line asked(const event& what) {
    const std::string callback = what.body == nullptr ? "" : child_text(what.body, "callback");
    const std::string subject =
        subject_of(what) + (callback.empty() ? "" : ", callback " + callback);
    if (what.text.empty())
        return {goes_out, subject, numbered(what)};
    return {dropped_there,
            subject + ", dropped: the plugin waits for an answer to " + what.text +
                ", and its library drops what comes before that",
            numbered(what)};
}

// What the peer was answered: agents with elements.
std::string answer_to(const event& request) {
    if (request.result == nullptr)
        return "left without an answer";
    if (request.who.is == role::agent)
        return request.text;
    return (request.result->is_ok() ? "" : "refused with ") + request.result->describe();
}

line request(const event& what) {
    if (what.way == direction::to_peer) {
        const bool came = what.result->result != verdict::no_answer;
        return {came ? comes_in : none_came, subject_of(what) + ": " + what.result->describe(),
                numbered(what) + " " + took(what)};
    }
    return {comes_in, subject_of(what) + ": " + answer_to(what)};
}

line closed(const event& what) {
    switch (what.why) {
    case cause::by_peer:
        return {comes_in, "hung up"};
    case cause::unread:
        return {goes_out, "pelmsim hangs up: too much is unread"};
    case cause::held:
        return {goes_out, "pelmsim hangs up: too much is kept for it"};
    case cause::fault:
        return {goes_out, "pelmsim hangs up: a fault"};
    case cause::failure:
        return {goes_out, "pelmsim hangs up: " + what.text};
    default:
        return {goes_out, "pelmsim hangs up"};
    }
}

line notification(const event& what) {
    const std::string size = std::to_string(what.text.size()) + " bytes";
    if (what.why == cause::no_xml)
        return {dropped_here, "notification, passed on to nobody: no well-formed XML", size};
    if (what.why == cause::excess)
        return {dropped_here, "notification, passed on to nobody: " + what.got, size};
    return {comes_in, "notification, passed on to " + std::to_string(what.count) + " agents", size};
}

// Frames are seen by what they carry; only what an agent is sent unasked is nothing else.
bool is_passed_on(const event& what) {
    return what.who.is == role::agent && what.way == direction::to_peer &&
           local_name(what.body) == "notification";
}

std::optional<line> line_for(const event& what) {
    switch (what.kind) {
    case event_kind::connected:
        return line{comes_in, "connected"};
    case event_kind::asked:
        return asked(what);
    case event_kind::request:
        return request(what);
    case event_kind::frame:
        return is_passed_on(what) ? std::optional<line>({goes_out, "notification"}) : std::nullopt;
    case event_kind::unreadable:
        return line{dropped_here, "dropped: " + defect_of(what)};
    case event_kind::closed:
        return closed(what);
    case event_kind::refused:
        return line{dropped_here, "a connection is refused: " + what.text};
    case event_kind::notification:
        return notification(what);
    case event_kind::dropped:
        return line{dropped_here, "from now on the oldest notifications are dropped"};
    case event_kind::restart:
        return line{none_came, "the daemon restarts"};
    case event_kind::fault:
        return line{broken, "fault " + fault_of(what), numbered(what)};
    case event_kind::ended:
        return line{none_came, "ended: " + describe_status(what.code)};
    default:
        return std::nullopt;
    }
}

bool are_alike(const timeline_entry& a, const timeline_entry& b) {
    return a.arrow == b.arrow && a.peer == b.peer && a.what == b.what;
}

// How often the entries that begin there, so many of them, come one after the other.
std::size_t rounds(const std::deque<timeline_entry>& all, std::size_t from, std::size_t length) {
    std::size_t next = from + length;
    while (next < all.size() && are_alike(all[next], all[next - length]))
        ++next;
    return (next - from) / length;
}

struct round {
    std::size_t length = 1;
    std::size_t count = 1;
};

// What stands for most of the entries that begin there.
round round_at(const std::deque<timeline_entry>& all, std::size_t from) {
    round best;
    for (std::size_t length = 1; length <= longest_round; ++length)
        if (const std::size_t count = rounds(all, from, length);
            count > 2 && count * length > best.count * best.length)
            best = {length, count};
    return best;
}

std::string moment_of(wall_time time, wall_time begin) {
    char text[32];
    (void)std::snprintf(text, sizeof text, "%+.3f",
                        std::chrono::duration<double>(time - begin).count());
    return text;
}

std::string text_of(const timeline_entry& each, wall_time begin) {
    return columns({{moment_of(each.time, begin), 10},
                    {std::string("pelmsim ") + each.arrow, 12},
                    {each.peer, 14},
                    {each.what + (each.detail.empty() ? "" : "  " + each.detail), 1}});
}

std::string text_of(const round& which, moment::duration time) {
    const std::string those =
        which.length == 1 ? "" : "these " + std::to_string(which.length) + " lines ";
    return columns(
        {{"", 10},
         {"… " + those + std::to_string(which.count) + " times in " + time_in_words(time), 1}});
}

} // namespace

// By what became of the request with its id, as far as that is remembered.
std::string timeline::rule_for_stray(const event& answer) const {
    const auto its_request = [&](const timeline_entry& each) {
        return each.pid == answer.who.pid && each.id == answer.id &&
               each.kind == event_kind::request && each.way == direction::to_peer;
    };
    const auto found = std::find_if(kept_.rbegin(), kept_.rend(), its_request);
    if (found == kept_.rend())
        return "dropped: no request has its id";
    if (found->arrow == none_came)
        return "dropped: it comes too late for " + found->what;
    return "dropped: there has been one already to its request";
}

void timeline::take(const event& what) {
    if (!begin_)
        begin_ = what.time;
    auto shown = line_for(what);
    if (what.kind == event_kind::stray_answer)
        shown = {dropped_here, "answer " + rule_for_stray(what), numbered(what)};
    if (shown)
        keep({what.time, what.kind, what.who.pid, what.way, what.id, shown->arrow,
              what.who.label().substr(0, most_text), shown->what.substr(0, most_text),
              std::move(shown->detail)});
}

void timeline::keep(timeline_entry entry) {
    kept_.push_back(std::move(entry));
    if (kept_.size() > most_kept) {
        kept_.pop_front();
        ++dropped_;
    }
}

std::vector<std::string> timeline::groups() const {
    std::vector<std::string> all;
    if (dropped_ > 0)
        all.push_back("what came before, " + std::to_string(dropped_) + " lines, was dropped\n");
    for (std::size_t at = 0; at < kept_.size();) {
        const round next = round_at(kept_, at);
        std::string& group = all.emplace_back();
        for (std::size_t i = 0; i < next.length; ++i)
            group += text_of(kept_[at + i], *begin_);
        const std::size_t end = at + next.length * next.count;
        if (next.count > 1)
            group += text_of(next, kept_[end - 1].time - kept_[at].time);
        at = end;
    }
    return all;
}

std::string timeline::lines(std::size_t most) const {
    const std::vector<std::string> all = groups();
    std::size_t first = all.size();
    for (std::size_t count = 0; first > 0 && count < most; --first)
        count += static_cast<std::size_t>(std::ranges::count(all[first - 1], '\n'));
    std::string text;
    for (; first < all.size(); ++first)
        text += all[first];
    return text;
}

} // namespace pelmsim
