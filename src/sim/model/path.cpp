#include "model/path.h"

#include "model/problem.h"
#include "model/xml.h"

#include <algorithm>

namespace pelmsim {
namespace {

// As deep as the parser takes trees, for they are copied and written by recursion.
constexpr std::size_t most_steps = 256;
constexpr std::size_t most_keys = 64; // of one step, for each is compared with each

class path_reader {
public:
    explicit path_reader(std::string_view text) : text_(text) {}

    std::vector<path_step> read() {
        std::vector<path_step> steps;
        if (text_ == "/")
            return steps;
        if (at('/'))
            ++at_;
        steps.push_back(read_step());
        while (!at_end()) {
            if (steps.size() == most_steps)
                refuse("it has more than " + std::to_string(most_steps) + " steps");
            expect('/');
            steps.push_back(read_step());
        }
        return steps;
    }

private:
    bool at_end() const { return at_ == text_.size(); }
    bool at(char wanted) const { return !at_end() && text_[at_] == wanted; }

    [[noreturn]] void refuse(const std::string& why) const {
        throw problem("\"" + std::string(text_) + "\" is not a data path: " + why);
    }

    void expect(char wanted) {
        if (!at(wanted))
            refuse(std::string("'") + wanted + "' expected at character " +
                   std::to_string(at_ + 1));
        ++at_;
    }

    std::string read_until(const char* stops) {
        const std::size_t begin = at_;
        at_ = std::min(text_.find_first_of(stops, at_), text_.size());
        return std::string(text_.substr(begin, at_ - begin));
    }

    path_step read_step() {
        path_step step;
        step.name = read_until("/[");
        if (const std::size_t colon = step.name.find(':'); colon != std::string::npos) {
            step.prefix = step.name.substr(0, colon);
            step.name.erase(0, colon + 1);
        }
        if (step.name.empty())
            refuse("a name is missing at character " + std::to_string(at_ + 1));
        while (at('['))
            read_keys(step.keys);
        return step;
    }

    void read_keys(std::vector<path_key>& keys) {
        do {
            if (keys.size() == most_keys)
                refuse("a step has more than " + std::to_string(most_keys) + " keys");
            ++at_;
            std::string name = read_until("=],");
            name.erase(0, name.find_first_not_of(' '));
            expect('=');
            keys.push_back({name.substr(name.find(':') + 1), read_value()});
        } while (at(','));
        expect(']');
    }

    std::string read_value() {
        if (!at('"') && !at('\''))
            return read_until(",]");
        const char quote = text_[at_++];
        std::string value;
        for (; !at(quote); ++at_) {
            if (at('\\'))
                ++at_;
            if (at_end())
                refuse("a key value has no closing quote");
            value += text_[at_];
        }
        ++at_;
        return value;
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

std::string quoted(const std::string& value) {
    std::string text = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\')
            text += '\\';
        text += c;
    }
    return text + '"';
}

std::string prefix_of(const data_path& path, std::size_t index) {
    while (index > 0 && path.steps[index].prefix.empty())
        --index;
    return path.steps[index].prefix;
}

std::string prefix_of(const xmlNode* element) {
    for (; element != nullptr && element->type == XML_ELEMENT_NODE; element = element->parent) {
        if (element->ns != nullptr && element->ns->prefix != nullptr)
            return reinterpret_cast<const char*>(element->ns->prefix);
        const std::string name = reinterpret_cast<const char*>(element->name);
        if (const std::size_t colon = name.find(':'); colon != std::string::npos)
            return name.substr(0, colon);
    }
    return {};
}

bool agree(const std::string& one_prefix, const std::string& other) {
    return one_prefix.empty() || other.empty() || one_prefix == other;
}

// Whether no key that both steps name has two values.
bool keys_agree(const path_step& one, const path_step& other) {
    return std::ranges::all_of(one.keys, [&](const path_key& key) {
        return std::ranges::all_of(other.keys, [&](const path_key& its) {
            return its.name != key.name || its.value == key.value;
        });
    });
}

} // namespace

data_path::data_path(std::string_view text) : steps(path_reader(text).read()) {}

std::string data_path::text() const {
    std::string result;
    for (const path_step& step : steps) {
        result += "/" + (step.prefix.empty() ? "" : step.prefix + ":") + step.name;
        const char* before = "[";
        for (const path_key& key : step.keys) {
            result += before + key.name + "=" + quoted(key.value);
            before = ",";
        }
        result += step.keys.empty() ? "" : "]";
    }
    return result.empty() ? "/" : result;
}

std::string data_path::names() const {
    std::string result;
    for (const path_step& step : steps)
        result += "/" + step.name;
    return result;
}

std::size_t data_path::weight() const {
    std::size_t sum = sizeof *this;
    for (const path_step& step : steps) {
        sum += sizeof step + step.prefix.size() + step.name.size();
        for (const path_key& key : step.keys)
            sum += sizeof key + key.name.size() + key.value.size();
    }
    return sum;
}

bool data_path::is(const data_path& other) const {
    const auto same_keys = [](const path_step& one, const path_step& another) {
        return one.keys.size() == another.keys.size() &&
               std::ranges::is_permutation(one.keys, another.keys);
    };
    return covers(other) && std::ranges::equal(steps, other.steps, same_keys);
}

bool data_path::covers(const data_path& other) const {
    if (steps.size() > other.steps.size())
        return false;
    for (std::size_t index = 0; index < steps.size(); ++index)
        if (steps[index].name != other.steps[index].name ||
            !keys_agree(steps[index], other.steps[index]) ||
            !agree(prefix_of(*this, index), prefix_of(other, index)))
            return false;
    return true;
}

bool matches(const data_path& path, std::size_t index, const xmlNode* element) {
    const path_step& step = path.steps[index];
    if (local_name(element) != step.name)
        return false;
    if (!agree(prefix_of(path, index), prefix_of(element)))
        return false;
    return std::ranges::all_of(step.keys, [&](const path_key& key) {
        return key.name == "." ? text_of(element) == key.value
                               : find_child(element, key.name.c_str()) != nullptr &&
                                     child_text(element, key.name.c_str()) == key.value;
    });
}

} // namespace pelmsim
