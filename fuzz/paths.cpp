// The forms of data paths, against their rules said once more in the plainest way.
#include "conf_plugin/paths.h"

#include "conf_api.h"
#include "input.h"
#include "support/handle.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace {

// A converter's result, of which one "/" may be new.
std::string converted(char* (*convert)(const char*), const std::string& path) {
    const conf::unique_string result{convert(path.c_str())};
    require(std::string_view(result.get()).size() <= path.size() + 1);
    return result.get();
}

// Exactly as much room as the path needs: whatever is touched beyond it is a sanitizer's.
std::string unquoted(const std::string& path) {
    std::vector<char> area(path.c_str(), path.c_str() + path.size() + 1);
    require(conf::datastore_path_rm_quotes(area.data()) == area.data());
    std::string result = area.data();
    require(
        std::all_of(area.begin() + std::ssize(result), area.end(), [](char c) { return c == 0; }));
    return result;
}

// The standard form, with copies of all that is remembered.
std::string model_of_standard(bool is_schema, const std::string& path) {
    std::string out;
    std::optional<std::string> last_prefix;
    std::optional<std::size_t> node;
    std::size_t node_out = 0;
    bool is_key = false;
    for (std::size_t i = 0; i < path.size(); ++i) {
        const char c = path[i];
        const bool is_bracket = c == '[' || c == ']';
        if (is_bracket)
            is_key = c == '[';
        if (is_bracket || is_key) {
            out += is_schema ? "" : std::string(1, c);
        } else if (c == '/') {
            if (node && !last_prefix)
                last_prefix = out.substr(node_out);
            else
                node.reset();
            out += node ? ':' : '/';
        } else if (c == ':' && node) {
            const bool is_repeated = last_prefix == path.substr(*node, i - *node);
            if (!is_repeated)
                last_prefix = out.substr(node_out);
            is_repeated ? out.resize(node_out) : out.push_back(':');
        } else if (c != ':') {
            out += out.empty() ? "/" : "";
            node_out = node ? node_out : out.size();
            node = node.value_or(i);
            out += c;
        }
    }
    return out.size() > 1 && out.back() == '/' ? out.substr(0, out.size() - 1) : out;
}

bool model_is_quoted(const std::string& path, std::size_t begin, std::size_t at) {
    bool inside = false;
    for (std::size_t i = begin; i <= at; ++i) {
        std::size_t escapes = 0;
        while (i - escapes > begin && path[i - escapes - 1] == '\\')
            ++escapes;
        inside ^= path[i] == '"' && escapes % 2 == 0;
    }
    return inside;
}

std::string model_of_unquoting(const std::string& path) {
    std::string out;
    for (std::size_t i = 0; i < path.size(); ++i) {
        out += path[i];
        if (path.compare(i, 2, "=\"") != 0 || model_is_quoted(path, 0, i))
            continue;
        const std::size_t value = i + 2;
        std::size_t end = path.find_first_of(",]", value);
        while (end != path.npos && model_is_quoted(path, i + 1, end))
            end = path.find_first_of(",]", end + 1);
        if (end == path.npos || path.find_first_of("\",]\\", value) != end - 1 ||
            path[end - 1] != '"')
            continue;
        out += path.substr(value, end - 1 - value) + path[end];
        i = end;
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static constexpr std::string_view pieces[] = {"/", ":", "[",  "]",   ",",   "\\",
                                                  "a", "b", "\"", "=\"", "\"]", "/a:"};
    for (input in(bytes, size); !in.is_used_up();) {
        const bool is_of_pieces = in.below(16) != 0;
        const std::string path = is_of_pieces ? in.text(pieces) : in.rest().c_str();
        std::string data = model_of_standard(false, path);
        require(converted(plugin_path_schema2std, path) == model_of_standard(true, path));
        require(converted(plugin_path_data2std, path) == data);
        if (const std::size_t colon = data.find(':'); colon != data.npos)
            data[colon] = '/';
        require(converted(plugin_path_std2db, path) == data);
        require(unquoted(path) == model_of_unquoting(path));
    }
    return 0;
}
