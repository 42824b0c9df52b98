#include "tap/conversation.h"

namespace pelmsim {

conversation::half::half(conversation& whole, direction its)
    : way(its),
      frames(whole.room_,
             {.frame = [&whole, its](arrival frame) { whole.take(its, std::move(frame)); },
              .defect = [&whole, its](const defect& what) { whole.complain(its, what); }}) {}

conversation::conversation(event_journal& events, shared_room& room, pid_t pid)
    : events_(events), room_(room), pid_(pid) {}

void conversation::passed(direction way, std::string_view bytes, std::size_t lost, moment at) {
    now_ = at;
    if (lost > 0) {
        complain(way, {cause::failure, 0,
                       std::to_string(lost) + " bytes that nobody has read along: more passes "
                                              "than can be told of"});
        of(way).frames.begin_again();
        forget_open();
    }
    of(way).frames.add(bytes);
}

void conversation::take(direction way, arrival frame) {
    events_.report({.kind = event_kind::frame,
                    .who = who(),
                    .way = way,
                    .id = std::to_string(frame.header.seq),
                    .body = frame.body.get(),
                    .count = frame.header.length});
    on_frame(way, std::move(frame.body), now_);
}

void conversation::report_stray(direction way, const std::string& id, const open_requests& open) {
    if (!misses_some_ && !open.has_forgotten())
        events_.report({.kind = event_kind::stray_answer, .who = who(), .way = way, .id = id});
}

void conversation::complain(direction way, const defect& what) {
    misses_some_ |= what.why == cause::failure;
    if (of(way).defects++ == 0)
        report_unreadable(way, what);
}

void conversation::report_unreadable(direction way, const defect& what) {
    events_.report({.kind = event_kind::unreadable,
                    .who = who(),
                    .way = way,
                    .why = what.why,
                    .count = what.count,
                    .text = what.text});
}

void conversation::end(bool by_daemon) {
    leave_open();
    for (const half* each : {&from_peer_, &to_peer_})
        if (each->defects > 1)
            report_unreadable(each->way,
                              {cause::failure, 0,
                               std::to_string(each->defects - 1) + " more that could not be read"});
    events_.report({.kind = event_kind::closed,
                    .who = who(),
                    .why = by_daemon ? cause::by_daemon : cause::by_peer,
                    .text = by_daemon ? "the daemon hung up" : ""});
}

} // namespace pelmsim
