#include "daemon/faults.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace pelmsim {
namespace {

constexpr fault_row menu[] = {
    {fault_kind::closed, "closed", "[MS]", true, true, true,
     "hang up in its place, and let nobody in for MS"},
    {fault_kind::deaf, "deaf", "[MS]", true, true, true, "behind it, read nothing for MS"},
    {fault_kind::delay, "delay", "MS", true, true, true,
     "let it, and all that is behind it, wait for MS"},
    {fault_kind::error, "error", "CODE TEXT", true, false, true,
     "answer with this error, and do nothing else"},
    {fault_kind::hang_up_after, "hang-up-after", "", true, true, true,
     "hang up once it has been read"},
    {fault_kind::hang_up_before, "hang-up-before", "", true, true, true, "hang up in its place"},
    {fault_kind::hang_up_within, "hang-up-within", "", true, true, true,
     "hang up behind half of it"},
    {fault_kind::joined, "joined", "", true, false, false,
     "put a kick-off behind the answer, in one piece with it"},
    {fault_kind::nothing, "nothing", "", true, true, true,
     "send nothing; a request of the peer is not carried out"},
    {fault_kind::own_id, "own-id", "", true, false, false,
     "put a kick-off with the id that is waited for in front of the answer"},
    {fault_kind::restart, "restart", "[MS]", true, true, true,
     "restart the daemon in its place, which comes back after MS"},
    {fault_kind::wrong_id, "wrong-id", "", true, true, true, "send it with another id"},
};
static_assert(std::size(menu) == static_cast<std::size_t>(fault_kind::wrong_id) + 1);

// What others draw from must not be of a library's making, which is free to change.
class random_numbers {
public:
    explicit random_numbers(std::uint64_t seed) : state_(seed) {}

    int below(int limit) {
        state_ += 0x9E3779B97F4A7C15;
        std::uint64_t mixed = state_;
        mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EB;
        return static_cast<int>((mixed ^ (mixed >> 31U)) % static_cast<unsigned>(limit));
    }

private:
    std::uint64_t state_;
};

constexpr int kinds = std::size(menu);
constexpr int most_skipped = 8;
constexpr int most_unsuited = 16;
constexpr int longest_time = 500;
constexpr int highest_code = 100;

fault draw(random_numbers& from) {
    const fault_row& row = menu[from.below(kinds)];
    fault made{.kind = row.kind};
    if (std::string_view(row.arguments).find("MS") != std::string_view::npos)
        made.time = milliseconds(1 + from.below(longest_time));
    if (row.kind == fault_kind::error) {
        made.code = 1 + from.below(highest_code);
        made.text = "chaos";
    }
    return made;
}

bool suits(const armed_fault& each, const peer& who, const outgoing_frame& frame) {
    const fault_row& row = row_of(each.what.kind);
    const fault_target& at = each.at;
    const std::string& name = frame.name.empty() ? who.name : frame.name;
    if (!(frame.is_answer ? row.of_answers : row.of_requests) ||
        (who.is == role::agent && !row.of_agents) ||
        (each.what.kind == fault_kind::joined && !frame.is_served))
        return false;
    if (at.which != fault_target::part::any &&
        (at.which == fault_target::part::answer) != frame.is_answer)
        return false;
    return (at.method.empty() || at.method == frame.method) && (at.name.empty() || at.name == name);
}

bool is_due(armed_fault& each, const peer& who, const outgoing_frame& frame) {
    if (!suits(each, who, frame)) {
        each.unsuited += each.in_turn ? 1 : 0;
        return false;
    }
    each.unsuited = 0;
    if (each.skipped == 0)
        return true;
    --each.skipped;
    return false;
}

} // namespace

std::span<const fault_row> all_faults() { return menu; }

const fault_row& row_of(fault_kind kind) { return menu[static_cast<std::size_t>(kind)]; }

const fault_row* find_fault(const std::string& name) {
    const auto* const found =
        std::ranges::find_if(menu, [&](const fault_row& each) { return name == each.name; });
    return found == std::end(menu) ? nullptr : found;
}

std::string fault_text(const fault& what) {
    std::string text = row_of(what.kind).name;
    if (what.time)
        text += " " + std::to_string(what.time->count());
    if (what.kind == fault_kind::error)
        text += " " + std::to_string(what.code) + " " + what.text;
    return text;
}

std::optional<arranged_answer> instead_of_answer(const std::optional<fault>& planted) {
    if (planted && planted->kind == fault_kind::error)
        return arranged_answer{.code = planted->code, .text = planted->text};
    if (planted && planted->kind == fault_kind::nothing)
        return arranged_answer{.silence = true};
    return {};
}

void armed_faults::arm_chaos(std::uint64_t seed, int count) {
    random_numbers numbers(seed);
    for (int i = 0; i < count; ++i) {
        const fault drawn = draw(numbers);
        arm({.what = drawn, .skipped = numbers.below(most_skipped), .in_turn = true});
    }
}

// One that nobody is there for must not keep all behind it from striking.
void armed_faults::pass_turn() {
    const auto first = std::ranges::find_if(armed_, &armed_fault::in_turn);
    if (first == armed_.end() || first->unsuited < most_unsuited)
        return;
    first->unsuited = 0;
    std::rotate(first, std::next(first), armed_.end());
}

std::optional<fault> armed_faults::strike(const peer& who, const outgoing_frame& frame) {
    ++frames_;
    pass_turn();
    bool has_turn = true;
    const auto found = std::ranges::find_if(armed_, [&](armed_fault& each) {
        return (!each.in_turn || std::exchange(has_turn, false)) && is_due(each, who, frame);
    });
    if (found == armed_.end())
        return {};
    const fault what = found->what;
    if (--found->times == 0)
        armed_.erase(found);
    ++struck_;
    events_.report({.kind = event_kind::fault,
                    .who = who,
                    .way = direction::to_peer,
                    .method = frame.method,
                    .id = frame.id,
                    .count = frames_,
                    .text = fault_text(what),
                    .frame = frame.is_answer ? "answer" : "request"});
    return what;
}

} // namespace pelmsim
