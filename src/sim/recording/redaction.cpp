#include "recording/redaction.h"

#include "journal/json_sink.h"
#include "model/operation.h"
#include "model/problem.h"
#include "script/commands.h"
#include "script/line_reader.h"
#include "script/syntax.h"

#include <algorithm>

namespace pelmsim {
namespace {

constexpr std::size_t most_questions = 4096; // that are remembered

unique_node wrapped(const xmlNode* first) {
    unique_node parent = new_element("x");
    attach(parent.get(), copy_nodes(first));
    return parent;
}

// Only the node itself.
unique_node wrapped_one(const xmlNode* node) {
    unique_node parent = new_element("x");
    attach(parent.get(), unique_node(xmlCopyNode(const_cast<xmlNode*>(node), 1)));
    return parent;
}

// Of these a text is an element's name, which its sender chose, but not what it means.
bool tells_a_name(const event& what) {
    return (what.kind == event_kind::request && what.who.is == role::agent) ||
           what.why == cause::no_request || what.why == cause::no_parameters;
}

bool is_operation(const std::string& word) {
    const std::vector<std::string> names = oper_names();
    return std::ranges::find(names, word) != names.end();
}

// Whether a word can be nothing but a keyword, a number, a name or a path, where the table of
// commands has one of these symbols.
bool may_stand_for(const std::string& symbol, const std::string& word) {
    static constexpr const char* numbers[] = {"CODE", "LINES", "MS", "N", "SEED", "STATUS", "..."};
    static constexpr const char* names[] = {"COMMAND", "METHOD", "PLUGIN", "PROGRAM"};
    return symbol == word || (is_among(numbers, symbol) && is_number(word)) ||
           (is_among(names, symbol) && is_name(word)) ||
           (symbol == "OPER" && (is_number(word) || is_operation(word))) ||
           (symbol == "PATH" && word.starts_with('/'));
}

// A text may begin with any word, even with a keyword that could stand there, too.
bool may_be_text(const std::string& symbol) {
    static constexpr const char* texts[] = {"ARGUMENT", "FILE", "FILTER", "MESSAGE",
                                            "TEXT",     "WHY",  "XML"};
    return is_among(texts, symbol);
}

bool may_stay(const std::string& word, const std::vector<std::string>& symbols) {
    return std::ranges::none_of(symbols, may_be_text) &&
           std::ranges::any_of(symbols,
                               [&](const auto& each) { return may_stand_for(each, word); });
}

} // namespace

void redaction::learn(const tree& configuration) {
    const unique_node copy(xmlCopyNode(configuration.root(), 1));
    xml_.redact_placed(copy.get(), "/");
}

const event& redaction::reduce(const event& what) {
    reduced_ = what;
    reduced_.who.name = known_.without(what.who.name);
    reduced_.method = known_.without(what.method);
    reduced_.id = id_without(what);
    reduced_.place = known_.without(what.place);
    reduced_.path = known_.without_values(what.path);
    if (what.kind == event_kind::command)
        reduced_.text = command_without(what.text);
    else
        reduce_texts(reduced_);
    body_ = what.body == nullptr ? nullptr : body_without(what);
    reduced_.body = body_.get();
    if (what.result != nullptr)
        reduce_result(what, *what.result);
    return reduced_;
}

// Those of agents and of JSON are texts of their choice; the latter stand as JSON in the line.
std::string redaction::id_without(const event& what) const {
    const bool is_kept = what.id.empty() || (is_number(what.id) && !known_.stand_in(what.id));
    if (is_kept)
        return what.id;
    return what.kind == event_kind::result ? json_text(redaction_mark) : redaction_mark;
}

std::string redaction::marked(const std::string& text) const {
    return is_own_word(text) ? known_.without(text) : redaction_mark;
}

// How long a notification was is told by its text.
void redaction::reduce_texts(event& what) const {
    if (what.kind == event_kind::notification)
        what.text.assign(what.text.size(), '*');
    else if (what.kind == event_kind::fault)
        what.text = fault_without(what.text);
    else
        what.text = tells_a_name(what) ? known_.without(what.text) : marked(what.text);
    what.got = marked(what.got);
    what.difference = marked(what.difference);
    what.mistake = marked(what.mistake);
}

// The text of an error stands behind its name and code.
std::string redaction::fault_without(const std::string& fault) const {
    const std::size_t behind_code = fault.find(' ', fault.find(' ') + 1);
    const bool has_text = fault.starts_with("error ") && behind_code != std::string::npos;
    const std::string kept = known_.without(fault.substr(0, has_text ? behind_code : fault.size()));
    return has_text ? kept + " " + redaction_mark : kept;
}

void redaction::reduce_result(const event& what, const outcome& given) {
    result_ = {};
    result_.result = given.result;
    result_.code = known_.stand_in(std::to_string(given.code)) ? 0 : given.code;
    result_.text =
        given.result == verdict::ended ? describe_status(result_.code) : marked(given.text);
    result_.shown = marked(given.shown);
    reduced_.result = &result_;
    if (given.data == nullptr)
        return;
    const unique_node data = wrapped(given.data.get());
    if (what.kind == event_kind::request && what.called == "status")
        xml_.redact_result(data.get(), "subscribe", what.path);
    else if (what.kind != event_kind::request && is_of_status_)
        xml_.redact_placed(data.get(), status_path_);
    else
        xml_.redact_unplaced(data.get());
    result_.data = take_children(data.get());
}

unique_nodes redaction::body_without(const event& what) {
    if (what.kind == event_kind::frame)
        return frame_without(what);
    const unique_node parent = wrapped_one(what.body);
    const bool is_of_plugin = what.who.is == role::plugin;
    if (is_of_plugin && (what.kind == event_kind::request || what.kind == event_kind::asked))
        xml_.redact_params(parent->children);
    else
        xml_.redact_unplaced(parent.get());
    if (what.called == "status")
        status_path_ = what.path;
    return take_children(parent.get());
}

unique_nodes redaction::frame_without(const event& what) {
    const unique_node parent = wrapped_one(what.body);
    const std::string name = local_name(what.body);
    if (what.who.is != role::plugin || (name != "rpc" && name != "reply")) {
        xml_.redact_unplaced(parent.get());
    } else if (name == "reply") {
        const question asked = question_of(what);
        xml_.redact_message(parent->children, asked.method, asked.path);
    } else {
        remember(what);
        xml_.redact_message(parent->children, "", "");
    }
    return take_children(parent.get());
}

void redaction::remember(const event& frame) {
    const xmlNode* const params = find_child(frame.body, "params");
    if (params == nullptr || frame.who.pid <= 0)
        return;
    if (questions_.size() >= most_questions)
        questions_.clear();
    const auto [made, is_new] = questions_.try_emplace(
        {frame.who.pid, frame.way, child_text(frame.body, "id")},
        question{child_text(frame.body, "method"), child_text(params, "path")});
    made->second.is_doubtful = !is_new;
}

// Where an answer's data stands, only the daemon is believed without a question of its own.
redaction::question redaction::question_of(const event& answer) {
    const bool is_of_daemon = answer.way == direction::to_peer;
    const auto found =
        questions_.find({answer.who.pid, is_of_daemon ? direction::from_peer : direction::to_peer,
                         child_text(answer.body, "id")});
    if (found == questions_.end() || found->second.is_doubtful)
        return {};
    question asked = std::move(found->second);
    questions_.erase(found);
    const bool is_known = is_of_daemon ? asked.method == "pull" || asked.method == "locate"
                                       : asked.method == "subscribe";
    return is_known ? asked : question{};
}

// As it stands, where nothing has to go.
std::string redaction::data_without(const std::string& data, const std::string& path) {
    const unique_node parent = new_element("x");
    script_line text(data);
    attach(parent.get(), parse_nodes(text.rest()));
    const std::string whole = compact(parent->children);
    xml_.redact_placed(parent.get(), path);
    const std::string left = compact(parent->children);
    return left == whole ? data : left;
}

// Word by word, up to the first that may be anything.
std::string redaction::command_without(const std::string& line) {
    std::string kept = redaction_mark;
    try {
        script_line words(line);
        const std::string name = words.word_or("");
        is_of_status_ = name == "status";
        const command* const known = find_command(name);
        if (known == nullptr)
            return kept;
        kept = name;
        for (std::vector<std::string> before; !words.at_end();) {
            const std::string word = words.word("a word");
            if (!may_stay(word, next_symbols(known->arguments, before)))
                return kept + " " + redaction_mark;
            const bool is_path = word.starts_with('/');
            kept += " " + (is_path ? known_.without_values(word) : known_.without(word));
            if (is_path && name == "set" && !words.at_end())
                return kept + " " + data_without(line.substr(words.place()), word);
            before.push_back(word);
        }
        return kept;
    } catch (const problem&) {
        return kept + " " + redaction_mark;
    }
}

} // namespace pelmsim
