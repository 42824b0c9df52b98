# pelmconf_add_plugin_tests(TARGET plugin [ARGUMENTS arg...] [PREFIX prefix] [CONFIG file] [TIMEOUT ms]
#                           [LAUNCHER command...] [OPTIONS option...] SCRIPTS script-or-folder...
#                           [PROPERTIES property value...])
#
# Makes each script, and each *.sim file below a folder, a test that "pelmsim test" runs against the
# plugin. It is called PREFIX, which is the target's name unless given, then "." and the script's name,
# in which blanks become underscores: projects for older versions of CMake cannot have them there.
#   ARGUMENTS   of the plugin
#   CONFIG      what its configuration begins with; NAME.xml beside NAME.sim goes before it
#   TIMEOUT     how long pelmsim waits for an answer and for an event
#   LAUNCHER    what the plugin is run by, such as valgrind; where it is built for another kind of
#               machine, the emulator that CMake knows of
#   OPTIONS     further ones of "pelmsim test"
#   PROPERTIES  of the tests; they come last, since one of them may be called as an argument is
# Without TARGET, which takes a PREFIX, the scripts start all that they need. The variable
# PELMCONF_PELMSIM names a pelmsim other than the one that was found.

function(pelmconf_add_plugin_tests)
  set(arguments ${ARGN})
  set(properties)
  list(FIND arguments PROPERTIES at)
  if(at GREATER_EQUAL 0)
    list(SUBLIST arguments ${at} -1 properties)
    list(SUBLIST arguments 0 ${at} arguments)
  endif()
  cmake_parse_arguments(arg "" "TARGET;PREFIX;CONFIG;TIMEOUT" "ARGUMENTS;LAUNCHER;OPTIONS;SCRIPTS"
                        ${arguments})
  if(arg_UNPARSED_ARGUMENTS OR NOT arg_SCRIPTS)
    message(FATAL_ERROR "pelmconf_add_plugin_tests(): SCRIPTS are missing, or this is no argument of "
                        "it: \"${arg_UNPARSED_ARGUMENTS}\"")
  endif()
  if(NOT arg_PREFIX)
    set(arg_PREFIX ${arg_TARGET})
  endif()
  if(NOT arg_PREFIX)
    message(FATAL_ERROR "pelmconf_add_plugin_tests(): TARGET or PREFIX is missing")
  endif()

  set(plugin)
  if(arg_TARGET)
    if(NOT arg_LAUNCHER AND CMAKE_CROSSCOMPILING)
      get_target_property(emulator ${arg_TARGET} CROSSCOMPILING_EMULATOR)
      if(emulator)
        set(arg_LAUNCHER ${emulator})
      endif()
    endif()
    set(plugin -- ${arg_LAUNCHER} $<TARGET_FILE:${arg_TARGET}> ${arg_ARGUMENTS})
  endif()
  if(arg_CONFIG)
    get_filename_component(config ${arg_CONFIG} ABSOLUTE)
    list(APPEND arg_OPTIONS --config ${config})
  endif()
  if(arg_TIMEOUT)
    list(APPEND arg_OPTIONS --timeout ${arg_TIMEOUT})
  endif()

  _pelmconf_find_pelmsim(pelmsim)
  _pelmconf_list_scripts(folders names ${arg_SCRIPTS})
  foreach(folder name IN ZIP_LISTS folders names)
    string(REGEX REPLACE "\\.sim$" "" test "${arg_PREFIX}.${name}")
    string(REPLACE " " "_" test "${test}")
    add_test(NAME ${test} COMMAND ${pelmsim} test ${arg_OPTIONS} ${folder}/${name} ${plugin})
    if(properties)
      set_tests_properties(${test} ${properties})
    endif()
  endforeach()
endfunction()

# The command that is pelmsim, into that variable. One that was built for another kind of machine does
# not do; but the one of this machine serves the plugin in its emulator.
function(_pelmconf_find_pelmsim variable)
  if(NOT PELMCONF_PELMSIM AND TARGET pelmconf::pelmsim)
    set(PELMCONF_PELMSIM $<TARGET_FILE:pelmconf::pelmsim>)
  endif()
  if(NOT PELMCONF_PELMSIM)
    find_program(PELMCONF_PELMSIM pelmsim NO_CMAKE_FIND_ROOT_PATH
                 DOC "The simulator that scripts for plugins are run by")
  endif()
  if(NOT PELMCONF_PELMSIM)
    message(FATAL_ERROR "pelmconf_add_plugin_tests(): there is no pelmsim. Install it (its Debian "
                        "package is called so, too), or say where it is: -DPELMCONF_PELMSIM=FILE")
  endif()
  set(${variable} ${PELMCONF_PELMSIM} PARENT_SCOPE)
endfunction()

# Of each script the folder that was given, or that it lies in, and its name there, into two variables.
function(_pelmconf_list_scripts folders_variable names_variable)
  set(folders)
  set(names)
  foreach(given IN LISTS ARGN)
    get_filename_component(given ${given} ABSOLUTE)
    if(IS_DIRECTORY ${given})
      string(REGEX REPLACE "([][*?])" "[\\1]" pattern ${given}) # for the folder is no pattern
      file(GLOB_RECURSE found CONFIGURE_DEPENDS RELATIVE ${given} ${pattern}/*.sim)
    elseif(EXISTS ${given})
      get_filename_component(found ${given} NAME)
      get_filename_component(given ${given} DIRECTORY)
    else()
      set(found)
    endif()
    if(NOT found)
      message(FATAL_ERROR "pelmconf_add_plugin_tests(): there is no script ${given}")
    endif()
    foreach(name IN LISTS found)
      list(APPEND folders ${given})
      list(APPEND names ${name})
    endforeach()
  endforeach()
  set(${folders_variable} ${folders} PARENT_SCOPE)
  set(${names_variable} ${names} PARENT_SCOPE)
endfunction()
