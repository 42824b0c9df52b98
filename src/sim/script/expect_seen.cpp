#include "script/expect_seen.h"

#include "journal/escaped.h"
#include "model/difference.h"
#include "model/problem.h"
#include "script/known.h"
#include "script/session.h"
#include "script/suggest.h"

#include <algorithm>

namespace pelmsim {
namespace {

constexpr std::size_t most_listed = 5;
constexpr std::size_t most_bytes = 160; // of one that is listed
constexpr milliseconds between_looks{10};

// What there is of something at the moment.
struct sight {
    bool is_there = false;
    std::string seen;       // the thing itself, or else what there is of its kind
    std::string doubt = {}; // why it may only seem not to be there; empty when nobody can say so
    std::string difference = {}; // of XML
};

struct search {
    std::string wanted; // in words
    std::function<sight()> look;
};

std::string shortened(const std::string& text) {
    std::string_view left = text;
    while (!left.empty() && text.size() - left.size() < most_bytes)
        left.remove_prefix(std::max<std::size_t>(character_length(left), 1));
    return left.empty() ? text : text.substr(0, text.size() - left.size()) + "...";
}

// The last ones.
std::string listed(const std::vector<std::string>& all) {
    if (all.empty())
        return "nothing";
    const std::size_t left_out = all.size() - std::min(all.size(), most_listed);
    std::string text;
    for (std::size_t index = left_out; index < all.size(); ++index)
        text += (text.empty() ? "" : ", ") + shortened(all[index]);
    return text + (left_out == 0 ? "" : ", and " + std::to_string(left_out) + " before");
}

// A request of a plugin. What is not said of it may be anything.
struct request_wish {
    std::string kind;
    std::optional<std::string> plugin = {};
    std::optional<std::string> how = {};
    std::optional<data_path> path = {};
    std::optional<std::string> data = {};

    bool fits_but_for_data(const plugin_request& each) const;
    bool fits(const plugin_request& each) const {
        return fits_but_for_data(each) && (!data || *data == each.data);
    }
    std::string text() const;
};

// A plugin may ask for what is no path at all.
bool is_at(const data_path& path, const std::string& text) {
    try {
        return path.is(data_path(text));
    } catch (const problem&) {
        return false;
    }
}

bool request_wish::fits_but_for_data(const plugin_request& each) const {
    return each.kind == kind && (!plugin || *plugin == each.plugin) && (!how || *how == each.how) &&
           (!path || is_at(*path, each.path));
}

std::string in_words(std::initializer_list<std::string> words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() || word.empty() ? "" : " ") + word;
    return text;
}

std::string request_wish::text() const {
    return in_words({kind, plugin ? "by " + *plugin : "", how.value_or(""),
                     path ? path->text() : "", data.value_or("")});
}

data_path path_in(const std::string& text) {
    if (!text.starts_with('/')) // more likely another word
        throw problem("\"" + text + "\" is not a data path: it does not begin with a slash");
    return data_path(text);
}

// What is done to the deployment by that word; whether it is done to a path.
bool is_about_path(const std::string& word) {
    for (const char* each : {"add", "delete", "update"})
        if (word == each)
            return true;
    for (const char* each : {"save", "copy", "override"})
        if (word == each)
            return false;
    throw problem("\"" + word + "\" is not done to the deployment");
}

request_wish read_wish(const std::string& kind, line_reader& words) {
    request_wish made{.kind = kind};
    std::string next = words.word_or("");
    if (next == "by") {
        made.plugin = words.word("a plugin");
        next = words.word_or("");
    }
    if (next.empty())
        return made;
    if (kind == "pulled") {
        made.how = next == "old" ? "old" : "";
        next = next == "old" ? words.word_or("") : next;
    } else if (kind == "deployed") {
        made.how = next;
        next = is_about_path(next) ? words.word_or("") : "";
    }
    if (!next.empty())
        made.path = path_in(next);
    if (made.path && kind != "pulled" && !words.at_end())
        made.data = compact(parse_nodes(words.rest()).get());
    return made;
}

// In the order of a command's words.
std::string describe(const plugin_request& which, bool with_plugin) {
    return in_words({with_plugin ? "by " + which.plugin : "", which.how, which.path, which.data});
}

std::string doubt_of_requests(session& on, const request_wish& wish, bool is_known) {
    if (!is_known && wish.plugin && on.daemon.plugins().find(*wish.plugin) == nullptr)
        return "there is no plugin " + *wish.plugin + suggestion(*wish.plugin, plugin_names(on));
    return on.step.is_cut() ? "the first of many requests are kept no more" : on.step.unheard();
}

sight look_at_requests(session& on, const request_wish& wish) {
    std::vector<std::string> others;
    const plugin_request* nearest = nullptr;
    bool is_known = false;
    for (const plugin_request& each : on.step.requests()) {
        is_known = is_known || each.plugin == wish.plugin;
        if (wish.fits(each))
            return {true, wish.kind + " " + describe(each, wish.plugin.has_value())};
        if (wish.fits_but_for_data(each))
            nearest = &each;
        if (each.kind == wish.kind)
            others.push_back(describe(each, wish.plugin.has_value()));
    }
    sight made{false, listed(others), doubt_of_requests(on, wish, is_known)};
    if (nearest != nullptr) {
        made.seen = describe(*nearest, wish.plugin.has_value());
        made.difference =
            describe_difference(parse_nodes(*wish.data).get(), parse_nodes(nearest->data).get());
    }
    return made;
}

search search_requests(session& on, const std::string& kind, line_reader& words) {
    const request_wish wish = read_wish(kind, words);
    return {wish.text(), [&on, wish] { return look_at_requests(on, wish); }};
}

// Of texts that came in this step, one with that in it.
sight look_at_texts(const std::string& kind, const std::vector<std::string>& all,
                    const std::string& wanted, const std::string& doubt) {
    std::vector<std::string> others;
    for (const std::string& each : all) {
        others.push_back("\"" + each + "\"");
        if (each.find(wanted) != std::string::npos)
            return {true, kind + " " + others.back()};
    }
    return {false, listed(others), doubt};
}

search search_notifications(session& on, const std::string& kind, line_reader& words) {
    const std::string text = words.rest();
    return {in_words({kind, text}), [&on, kind, text] {
                const notifier& all = on.daemon.notifier();
                const std::size_t first = std::max(all.dropped(), on.step.notifications());
                const auto begin =
                    all.kept().begin() + static_cast<std::ptrdiff_t>(first - all.dropped());
                return look_at_texts(kind, {begin, all.kept().end()}, text,
                                     all.dropped() > on.step.notifications()
                                         ? "the first of many were dropped"
                                         : on.step.unheard());
            }};
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find_first_of("\r\n", begin), text.size());
        if (end > begin)
            lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

search search_log(session& on, const std::string& kind, line_reader& words) {
    const std::string text = words.rest();
    return {in_words({kind, text}), [&on, kind, text]() -> sight {
                const auto log = plugin_log_behind(on.step.log());
                if (!log)
                    return {false, "nothing", "there is no log"};
                return look_at_texts(kind, lines_of(log->text), text,
                                     log->is_cut ? "the log was begun anew" : on.step.unheard());
            }};
}

sight look_at_warnings(session& on, const std::string& text) {
    on.warned.look_at_log();
    sight made{false, "", on.warned.is_full() ? "more came than are kept" : on.step.unheard()};
    std::vector<std::string> others;
    for (given_warning& each : on.warned.of_step()) {
        others.push_back("\"" + each.who + ": " + each.text + "\"");
        if (each.text.find(text) == std::string::npos)
            continue;
        each.is_looked_at = true;
        made.is_there = true;
        made.seen = "warning " + others.back();
    }
    if (!made.is_there)
        made.seen = listed(others);
    return made;
}

search search_warnings(session& on, const std::string& kind, line_reader& words) {
    const std::string text = words.rest();
    return {in_words({kind, text}), [&on, text] { return look_at_warnings(on, text); }};
}

constexpr struct {
    const char* name;
    search (*make)(session& on, const std::string& kind, line_reader& words);
} kinds[] = {
    {"deployed", search_requests},
    {"log", search_log},
    {"notification", search_notifications},
    {"pulled", search_requests},
    {"pushed", search_requests},
    {"warning", search_warnings},
};

const auto* find_kind(const std::string& name) {
    return std::ranges::find_if(kinds, [&](const auto& each) { return name == each.name; });
}

} // namespace

bool is_seen(const std::string& kind) { return find_kind(kind) != std::end(kinds); }

bool comes_within(session& on, milliseconds limit, const std::function<bool()>& is_there) {
    const moment end = on.loop.now() + limit;
    bool came = false;
    do {
        const auto left = std::chrono::ceil<milliseconds>(end - on.loop.now());
        came = on.serve_until(is_there, std::min(left, between_looks));
        if (!came && on.loop.was_cancelled())
            throw problem("the wait was cancelled");
    } while (!came && on.loop.now() < end);
    return came;
}

finding look_for(session& on, const std::string& kind, line_reader& words, const manner& how) {
    const search wanted = find_kind(kind)->make(on, kind, words);
    words.finish();
    on.take_in();
    sight now = wanted.look();
    if (how.within && !now.is_there)
        (void)comes_within(on, *how.within, [&] {
            now = wanted.look();
            return now.is_there;
        });
    const std::string expected = wanted.wanted + how.limit();
    const bool is_doubtful = !now.is_there && !now.doubt.empty();
    if (how.is_of_absence)
        return {!now.is_there && !is_doubtful, "not " + expected,
                is_doubtful ? now.doubt : now.seen};
    return {now.is_there, expected, now.seen + (is_doubtful ? "; " + now.doubt : ""),
            now.difference};
}

} // namespace pelmsim
