// All the rules are held against a model in fuzz/paths.cpp.
#include "conf_plugin/paths.h"

#include "conf_api.h"
#include "conf_debug.h"
#include "support/test.h"

TEST(Paths, AreNullWithoutInput) {
    EXPECT_EQ(plugin_path_schema2std(nullptr), nullptr);
    EXPECT_EQ(plugin_path_std2db(nullptr), nullptr);
    EXPECT_EQ(conf::datastore_path_rm_quotes(nullptr), nullptr);
}
