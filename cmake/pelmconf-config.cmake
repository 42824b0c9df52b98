# Gives pelmconf::pelmconf, and pelmconf::pelmconf_static where libcjson is there to be linked; for tests
# of plugins pelmconf::pelmtest, and pelmconf::pelmtest_static for those that are linked with the latter;
# pelmconf::pelmsim where it is installed and runs, and pelmconf_add_plugin_tests() for its scripts.
include(CMakeFindDependencyMacro)
find_dependency(LibXml2)
include(${CMAKE_CURRENT_LIST_DIR}/pelmconf-targets.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/pelmtest-targets.cmake OPTIONAL)
if(NOT CMAKE_CROSSCOMPILING)
  include(${CMAKE_CURRENT_LIST_DIR}/pelmsim-targets.cmake OPTIONAL)
endif()
include(${CMAKE_CURRENT_LIST_DIR}/pelmconf-plugin-tests.cmake)

find_package(PkgConfig QUIET)
if(PkgConfig_FOUND AND NOT TARGET PkgConfig::cjson)
  pkg_check_modules(cjson QUIET IMPORTED_TARGET libcjson)
endif()
if(TARGET PkgConfig::cjson)
  include(${CMAKE_CURRENT_LIST_DIR}/pelmconf_static-targets.cmake)
  include(${CMAKE_CURRENT_LIST_DIR}/pelmtest_static-targets.cmake OPTIONAL)
endif()
