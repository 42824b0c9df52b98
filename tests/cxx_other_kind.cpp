// A plugin for cxx_test.cpp, compiled with exceptions where that is compiled without, and the other way.
#include <pelmconf.hpp>

econf_plugin_subpub_info_t* table_of_the_other_kind();

econf_plugin_subpub_info_t* table_of_the_other_kind() {
    static pelmconf::plugin plugin("other");
    plugin.on_status("/s", [] { return pelmconf::tree("other"); });
#ifdef __cpp_exceptions
    return plugin.table();
#else
    return *plugin.table();
#endif
}
