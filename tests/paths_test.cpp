#include "conf_plugin/paths.h"

#include "conf_api.h"
#include "conf_debug.h"
#include "support/faults.h"
#include "support/handle.h"
#include "support/reports.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <optional>
#include <random>

namespace {

// A converter's result, of which one "/" may be new.
std::string converted(char* (*convert)(const char*), const std::string& path) {
    const conf::unique_string result{convert(path.c_str())};
    EXPECT_LE(std::string_view(result.get()).size(), path.size() + 1) << path;
    return result.get();
}

// Exactly as much room as the path needs: whatever is touched beyond it is a sanitizer's.
std::string unquoted(const std::string& path) {
    std::vector<char> area(path.c_str(), path.c_str() + path.size() + 1);
    EXPECT_EQ(conf::datastore_path_rm_quotes(area.data()), area.data());
    std::string result = area.data();
    EXPECT_EQ(std::count(area.begin(), area.end(), '\0'),
              area.end() - area.begin() - std::ssize(result));
    return result;
}

// The rules of the standard form, one by one, with copies of all that is remembered.
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

TEST(Paths, LoseRepeatedPrefixesAndNeedlessQuotes) {
    EXPECT_EQ(converted(plugin_path_schema2std, "/a[x]/b/a:c"), "/a:b/c");
    EXPECT_EQ(converted(plugin_path_schema2std, "/a:b/a[x]:c"), "/a:b/a:c");
    EXPECT_EQ(converted(plugin_path_data2std, "/a:x/a:b:c/b:d"), "/a:x/b:c/d");
    EXPECT_EQ(converted(plugin_path_data2std, "/a:b[k='/c:]/a:c']/a:d"), "/a:b[k='/c:]/c']/d");
    EXPECT_EQ(converted(plugin_path_data2std, "a//b//"), "/a:/b/");
    EXPECT_EQ(converted(plugin_path_std2db, "/a:b/d:c/d:e/a:f"), "/a/b/d:c/e/a:f");
    EXPECT_EQ(converted(plugin_path_std2db, "[k='x:y']a:b"), "[k='x/y']a:b");
    EXPECT_EQ(unquoted(R"(/l[a="1",b="2",c="3"]/m[d=""])"), "/l[a=1,b=2,c=3]/m[d=]");
    EXPECT_EQ(unquoted(R"(/a[m="x,y",n="/b:c=d["])"), R"(/a[m="x,y",n=/b:c=d[])");
    for (const char* kept :
         {R"([n="x]"])", R"([n="x"y"])", R"([n="\x"])", R"(n="v")", R"(["n="x"])"})
        EXPECT_EQ(unquoted(kept), kept);
}

TEST(Paths, FollowTheRulesWhateverTheyHold) {
    constexpr const char* pieces[] = {"/", ":", "[",  "]",   ",",   "\\",
                                      "a", "b", "\"", "=\"", "\"]", "/a:"};
    std::mt19937 random(36);
    for (int round = 0; round < 10000; ++round) {
        std::string path;
        for (auto left = random() % 16; left > 0; --left)
            path += pieces[random() % std::size(pieces)];
        ASSERT_EQ(converted(plugin_path_schema2std, path), model_of_standard(true, path)) << path;
        std::string data = model_of_standard(false, path);
        ASSERT_EQ(converted(plugin_path_data2std, path), data) << path;
        if (const std::size_t colon = data.find(':'); colon != data.npos)
            data[colon] = '/';
        ASSERT_EQ(converted(plugin_path_std2db, path), data) << path;
        ASSERT_EQ(unquoted(path), model_of_unquoting(path)) << path;
    }
}

TEST(Paths, AreNullWithoutInputOrMemory) {
    econf_plugin_config_debug(DBG_ERROR, 1);
    EXPECT_EQ(plugin_path_schema2std(nullptr), nullptr);
    EXPECT_EQ(plugin_path_std2db(nullptr), nullptr);
    EXPECT_EQ(conf::datastore_path_rm_quotes(nullptr), nullptr);
    const fault no_memory(call::malloc, ENOMEM);
    EXPECT_EQ(plugin_path_std2db("/a%n"), nullptr);
    EXPECT_THAT(plugin_log(), testing::ElementsAre("ERROR - Duplicated path /a%n failed."));
}
