// The daemon's profile: any file at all, and files whose meaning is known.
#include "support/profile.h"

#include "conf_plugin.h"
#include "input.h"
#include "support/handle.h"
#include "support/socket.h"

#include <cstring>
#include <fstream>
#include <optional>

namespace {

// A directory's spelling in the file, and what it means.
struct piece {
    const char* json;
    const char* text;
};
constexpr piece pieces[] = {
    {"/", "/"},        {"\\/", "/"},
    {"dir", "dir"},    {"\\u002Fa", "/a"},
    {"\\\"", "\""},    {"\\uD83D\\uDE00", "\xF0\x9F\x98\x80"},
    {"\xC3\xA9", "é"}, {"a-directory-of-some-length", "a-directory-of-some-length"}};

// A profile, and what it names: nothing when it is refused, "/old" when it leaves all as it was.
struct profile {
    std::string json = "{";
    std::optional<std::string> directory = "/old";
};

void add_member(input& in, profile& result) {
    static constexpr const char* names[] = {"working-dir", "Working-dir", "working-dir ", ""};
    static constexpr const char* others[] = {"7", "null", "[]", R"({"working-dir":"/a"})"};
    const std::string name = in.pick(names);
    result.json += (result.json.size() > 1 ? ",\"" : "\"") + name + "\":";
    if (in.flag()) {
        result.json += in.pick(others);
        return;
    }
    std::string text;
    result.json += '"';
    for (auto left = in.below(10); left > 0; --left) {
        const piece& next = in.pick(pieces);
        result.json += next.json;
        text += next.text;
    }
    result.json += '"';
    if (name != names[0] || !result.directory)
        return;
    const bool fits =
        text.size() + std::strlen("/pelmd.notifier.socket") <= conf::longest_socket_path;
    result.directory = fits ? std::optional(text) : std::nullopt;
}

int load(const std::string& json, char** directory) {
    std::ofstream(conf::profile_path, std::ios::binary) << json;
    return conf_load_config(directory);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    input in(bytes, size);
    conf::unique_string directory{nullptr};
    require(load(R"({"working-dir":"/old"})", directory.out()) == 0);
    profile given;
    const bool is_known = in.flag();
    while (is_known && !in.is_used_up())
        add_member(in, given);
    const bool is_taken = load(is_known ? given.json + "}" : in.rest(), directory.out()) == 0;
    const std::string named = directory.get();
    if (is_known)
        require(is_taken == given.directory.has_value() &&
                named == given.directory.value_or("/old"));
    require(is_taken || named == "/old");
    require(g_conf_agent_socket == named + "/pelmd.agent.socket");
    require(g_conf_plugin_socket == named + "/pelmd.plugin.socket");
    require(g_conf_notifier_socket == named + "/pelmd.notifier.socket");
    return 0;
}
