// All the rules are held against a model in fuzz/paths.cpp.
#include "conf_plugin/paths.h"

#include "conf_api.h"
#include "conf_debug.h"
#include "support/test.h"

TEST(Paths, LoseRepeatedPrefixesAndNeedlessQuotes) {
    const auto unquoted = [](const char* path) {
        return conf::datastore_path_rm_quotes(strdup(path));
    };
    const std::tuple<char* (*)(const char*), const char*, const char*> cases[] = {
        {plugin_path_schema2std, "/a[x]/b/a:c", "/a:b/c"},
        {plugin_path_data2std, "/a:b[k='/c:]/a:c']/a:d", "/a:b[k='/c:]/c']/d"},
        {plugin_path_data2std, "a//b//", "/a:/b/"},
        {plugin_path_std2db, "/a:b/d:c/d:e/a:f", "/a/b/d:c/e/a:f"},
        {plugin_path_std2db, "[k='x:y']a:b", "[k='x/y']a:b"},
        {unquoted, R"(/l[a="1",b="2",c="3"]/m[d=""])", "/l[a=1,b=2,c=3]/m[d=]"},
        {unquoted, R"(/a[m="x,y",n="/b:c=d["])", R"(/a[m="x,y",n=/b:c=d[])"},
        {unquoted, R"([n="x]"])", R"([n="x]"])"},
        {unquoted, R"([n="x\\"]/m[c="d"])", R"([n="x\\"]/m[c=d])"}}; // the quote behind both counts
    for (const auto& [convert, path, expected] : traced(cases))
        EXPECT_STREQ(conf::unique_string(convert(path)).get(), expected) << path;
}

TEST(Paths, AreNullWithoutInput) {
    EXPECT_EQ(plugin_path_schema2std(nullptr), nullptr);
    EXPECT_EQ(plugin_path_std2db(nullptr), nullptr);
    EXPECT_EQ(conf::datastore_path_rm_quotes(nullptr), nullptr);
}
