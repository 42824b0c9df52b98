# What "pelmsim new" is made of. The files of templates/ become functions that hand out their texts.
set(plugin_templates
  .gitignore CMakeLists.txt README.md main.c sample-plugin.c tests/configuration.sim tests/configuration.xml
  tests/daemon.sim tests/operations.sim tests/sample-plugin_test.c tests/status.sim)
set(legacy_templates main.c sample-plugin.c tests/daemon.sim tests/sample-plugin_test.c)
set(cxx_templates CMakeLists.txt README.md main.cpp sample-plugin.cpp tests/sample-plugin_test.cpp)
set(embedded "#include \"new_text.h\"\n")
foreach(api plugin legacy cxx)
  string(APPEND embedded "\nstd::vector<pelmsim::template_file> pelmsim::${api}_templates() {\n    return {\n")
  foreach(name IN LISTS ${api}_templates)
    set(file ${PROJECT_SOURCE_DIR}/templates/${api}/${name})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
    file(READ ${file} text)
    string(APPEND embedded "{\"${name}\", R\"~~(${text})~~\"},\n")
  endforeach()
  string(APPEND embedded "    };\n}\n")
endforeach()
file(CONFIGURE OUTPUT new_templates.cpp CONTENT "${embedded}" @ONLY)

target_sources(pelmsim PRIVATE
  new.cpp new_names.cpp new_text.cpp ${CMAKE_CURRENT_BINARY_DIR}/new_templates.cpp)
target_include_directories(pelmsim PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
