#include "script/json_command.h"

#include "journal/escaped.h"
#include "model/problem.h"

#include <algorithm>
#include <cJSON.h>
#include <memory>
#include <string_view>

namespace pelmsim {
namespace {

struct cjson_deleter {
    void operator()(cJSON* value) const noexcept { cJSON_Delete(value); }
};
using unique_json = std::unique_ptr<cJSON, cjson_deleter>;

struct member {
    std::string name;
    unique_json value;
    std::string text; // of the value
};

[[noreturn]] void refuse(std::size_t at) {
    throw problem("no JSON object in UTF-8: see byte " + std::to_string(at + 1));
}

// Refuses what cJSON takes though it is no JSON, or would take for the end of a text.
void check_characters(std::string_view all) {
    bool quoted = false;
    for (std::size_t at = 0; at < all.size();) {
        const std::string_view left = all.substr(at);
        const auto first = static_cast<unsigned char>(left[0]);
        const std::size_t length = character_length(left);
        const bool is_blank = !quoted && (first == '\t' || first == '\r');
        if (length == 0 || (!quoted && length > 1) || (first < ' ' && !is_blank))
            refuse(at);
        if (quoted && left.starts_with("\\u0000"))
            throw problem("no text can hold \\u0000");
        if (first == '"')
            quoted = !quoted;
        at += quoted && first == '\\' ? 2 : length;
    }
}

// Takes an object apart by itself, since cJSON keeps no more of a number than fits into a double.
class object_reader {
public:
    explicit object_reader(const std::string& text) : text_(text) {}

    std::vector<member> read() {
        std::vector<member> members;
        expect('{');
        if (!take('}')) {
            do
                members.push_back(read_member());
            while (take(','));
            expect('}');
        }
        skip_blanks();
        if (at_ < text_.size())
            refuse(at_);
        return members;
    }

private:
    member read_member() {
        member made;
        const unique_json name = read_value(made.text);
        if (!cJSON_IsString(name.get()))
            refuse(at_);
        made.name = name->valuestring;
        expect(':');
        made.value = read_value(made.text);
        return made;
    }

    unique_json read_value(std::string& its_text) {
        skip_blanks();
        const char* const begin = text_.data() + at_;
        const char* end = begin;
        unique_json value(cJSON_ParseWithLengthOpts(begin, text_.size() - at_, &end, 0));
        its_text.assign(begin, end);
        at_ += its_text.size();
        if (value == nullptr)
            refuse(at_);
        return value;
    }

    void skip_blanks() { at_ = std::min(text_.find_first_not_of(" \t\r", at_), text_.size()); }

    bool take(char wanted) {
        skip_blanks();
        const bool is_there = at_ < text_.size() && text_[at_] == wanted;
        at_ += is_there ? 1 : 0;
        return is_there;
    }

    void expect(char wanted) {
        if (!take(wanted))
            refuse(at_);
    }

    const std::string& text_;
    std::size_t at_ = 0;
};

bool take_any(std::string_view& text, std::string_view characters) {
    const bool is_there = !text.empty() && characters.find(text[0]) != std::string_view::npos;
    text.remove_prefix(is_there ? 1 : 0);
    return is_there;
}

bool take_digits(std::string_view& text) {
    const bool are_there = take_any(text, "0123456789");
    text.remove_prefix(std::min(text.find_first_not_of("0123456789"), text.size()));
    return are_there;
}

// cJSON takes 01 and 1. as well, which are no JSON when they are given back.
bool is_number(std::string_view text) {
    (void)take_any(text, "-");
    if (!take_any(text, "0") && !take_digits(text))
        return false;
    if (take_any(text, ".") && !take_digits(text))
        return false;
    if (take_any(text, "eE")) {
        (void)take_any(text, "+-");
        return take_digits(text) && text.empty();
    }
    return text.empty();
}

void take_id(const member& from, json_command& command) {
    if (!cJSON_IsString(from.value.get()) && !is_number(from.text))
        throw problem("\"id\" is neither a number nor a string");
    command.id = from.text;
}

std::string string_of(const cJSON* value, const char* what) {
    if (!cJSON_IsString(value))
        throw problem(what);
    return value->valuestring;
}

void take_name(const member& from, json_command& command) {
    command.name = string_of(from.value.get(), "\"command\" is no string");
}

void take_arguments(const member& from, json_command& command) {
    constexpr const char* complaint = "\"arguments\" is no array of strings";
    if (!cJSON_IsArray(from.value.get()))
        throw problem(complaint);
    for (const cJSON* each = from.value->child; each != nullptr; each = each->next)
        command.arguments.push_back(string_of(each, complaint));
}

void take_line(const member& from, json_command& command) {
    command.line = string_of(from.value.get(), "\"line\" is no string");
}

// The id comes first, so that a complaint about the others comes with it.
constexpr struct {
    const char* name;
    void (*take)(const member& from, json_command& command);
} known_members[] = {
    {"id", take_id},
    {"command", take_name},
    {"arguments", take_arguments},
    {"line", take_line},
};

void check_names(const std::vector<member>& members) {
    for (const member& each : members)
        if (std::ranges::none_of(known_members,
                                 [&](const auto& known) { return each.name == known.name; }))
            throw problem("\"" + each.name + "\" is no member of a command");
}

} // namespace

void read_json_command(const std::string& text, json_command& command) {
    if (text.size() > json_command::longest)
        throw problem("a command has at most " + std::to_string(json_command::longest) + " bytes");
    check_characters(text);
    const std::vector<member> members = object_reader(text).read();
    for (const auto& known : known_members) {
        const auto is_it = [&](const member& each) { return each.name == known.name; };
        if (std::ranges::count_if(members, is_it) > 1)
            throw problem("\"" + std::string(known.name) + "\" is there twice");
        if (const auto found = std::ranges::find_if(members, is_it); found != members.end())
            known.take(*found, command);
    }
    check_names(members);
    if (command.name.empty() == command.line.empty())
        throw problem(R"(either "command" or "line" is to be there)");
    if (!command.line.empty() && !command.arguments.empty())
        throw problem(R"("arguments" belong to a "command")");
}

} // namespace pelmsim
