// The one entry of a process, and the hooks in it.
#include "support/plugin.h"

#include "conf_plugin/registry.h"

using namespace conf;

using Registry = PluginTest;

TEST_F(Registry, AProcessTakesHooksOnce) {
    pelmd_plugin_callback_t hooks{};
    hooks.conf_plugin_save_deployment = [] { return 1; };
    EXPECT_EQ(conf_plugin_init_api(nullptr), -1);
    conf_hash_tbl_t* const others = std::exchange(g_plugin_hash, nullptr);
    for (const int skip : {0, 1, 1}) { // the registry, the entry, the hooks
        const fault no_memory(call::malloc, ENOMEM, skip);
        EXPECT_EQ(conf_plugin_init_api(&hooks), -1);
    }
    EXPECT_EQ(conf_plugin_init_api(&hooks), 0);
    hooks.conf_plugin_save_deployment = [] { return 2; };
    EXPECT_EQ(conf_plugin_init_api(&hooks), -1);
    EXPECT_EQ(econf_plugin_save_deployment(), 1);
    _free_plugin_context(); // there is none
    const std::string made = text("INFO - Hash key = plugin_tid_%d.; ", getpid());
    EXPECT_EQ(log(true), "Error input parameter.; " + made + made +
                             "Allocate memory for pelmd api failed.; Conf API had initialized.");
    std::free(get_plugin_hooks());
    del_plugin_from_hash();
    conf_hash_destroy(std::exchange(g_plugin_hash, others));
}
