# What "cmake --install" puts where, for users of pkg-config and of CMake; debian/rules
# makes a package of each component.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/pelmconf)
set(header_directory ${CMAKE_INSTALL_INCLUDEDIR}/pelmconf)
# An export for each, since only users of the static library need libcjson for themselves. The two names
# of the kit are one archive.
set(libraries pelmconf pelmconf_static)
if(PELM_KIT)
  list(APPEND libraries pelmtest pelmtest_static)
endif()
foreach(library ${libraries})
  install(TARGETS ${library} EXPORT ${library}
          LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
          ARCHIVE COMPONENT development
          INCLUDES DESTINATION ${header_directory} ${CMAKE_INSTALL_INCLUDEDIR})
  install(EXPORT ${library} NAMESPACE pelmconf:: DESTINATION ${package_directory}
          FILE ${library}-targets.cmake COMPONENT development)
endforeach()
# Those in pelmconf/ are included by that name, and so are not put into another folder of it.
install(DIRECTORY src/include/ DESTINATION ${header_directory} COMPONENT development
        PATTERN pelmconf EXCLUDE)
install(DIRECTORY src/include/pelmconf/ DESTINATION ${header_directory} COMPONENT development)

write_basic_package_version_file(pelmconf-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES cmake/pelmconf-config.cmake cmake/pelmconf-plugin-tests.cmake
              ${PROJECT_BINARY_DIR}/pelmconf-config-version.cmake
        DESTINATION ${package_directory} COMPONENT development)
file(RELATIVE_PATH up_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
set(modules pelmconf)
if(PELM_KIT)
  list(APPEND modules pelmtest)
  install(FILES src/kit/pelmtest.h DESTINATION ${header_directory} COMPONENT development)
endif()
foreach(module ${modules})
  configure_file(cmake/${module}.pc.in ${module}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${module}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
          COMPONENT development)
endforeach()

# The programs find the library wherever the tree is moved to.
if(NOT DEFINED CMAKE_INSTALL_RPATH)
  file(RELATIVE_PATH to_library ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set(CMAKE_INSTALL_RPATH $ORIGIN/${to_library})
endif()

install(FILES LICENSES/MIT.txt RENAME LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT licence)

install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development
        FILES_MATCHING PATTERN *.[ch] PATTERN *.cpp PATTERN *.py PATTERN *.sim PATTERN *.service
                       PATTERN demo.xml)
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
set(PELM_ZSH_DIRECTORY ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING "Where zsh looks for completions")
install(FILES docs/man/pelmconf.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT development)
if(PELM_TOOLS)
  install(FILES docs/man/pelmsim.1 docs/man/pelmworld.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES docs/man/pelmd.conf.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT tools)
  install(FILES src/tools/pelmsim/completion/pelmsim.bash RENAME pelmsim
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
  install(FILES src/tools/pelmsim/completion/_pelmsim
          DESTINATION ${PELM_ZSH_DIRECTORY} COMPONENT tools)
endif()
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
        PATTERN man EXCLUDE PATTERN site EXCLUDE)
