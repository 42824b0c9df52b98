# Gives pelmconf::pelmconf, and pelmconf::pelmconf_static where libcjson is there to be linked.
include(CMakeFindDependencyMacro)
find_dependency(LibXml2)
include(${CMAKE_CURRENT_LIST_DIR}/pelmconf-targets.cmake)

find_package(PkgConfig QUIET)
if(PkgConfig_FOUND AND NOT TARGET PkgConfig::cjson)
  pkg_check_modules(cjson QUIET IMPORTED_TARGET libcjson)
endif()
if(TARGET PkgConfig::cjson)
  include(${CMAKE_CURRENT_LIST_DIR}/pelmconf_static-targets.cmake)
endif()
