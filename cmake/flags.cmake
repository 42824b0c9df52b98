# pelm_flags: what every target of this project is compiled and linked with.

add_library(pelm_flags INTERFACE)
target_compile_options(pelm_flags INTERFACE
  -Wall -Wextra -Wpedantic
  -Wcast-align -Wconversion -Wformat=2 -Wmissing-declarations
  -Wpointer-arith -Wshadow -Wundef -Wvla -Wwrite-strings
  $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes>
  $<$<COMPILE_LANGUAGE:CXX>:-Wextra-semi -Wnon-virtual-dtor -Woverloaded-virtual
                            -Wzero-as-null-pointer-constant>
  $<$<BOOL:${PELM_WERROR}>:-Werror>
  # Each compiler minds libxml2's BAD_CAST in one of these two.
  $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wold-style-cast>
  $<$<CXX_COMPILER_ID:GNU>:-Wcast-align=strict -Wcast-qual -Wduplicated-branches -Wduplicated-cond -Wlogical-op>)

if(PELM_SANITIZE)
  # vptr and function would need run-time type information, which the library is built without.
  set(sanitize -fsanitize=${PELM_SANITIZE} -fno-sanitize-recover=all -fno-sanitize=vptr)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    list(APPEND sanitize -fno-sanitize=function)
  endif()
  target_compile_options(pelm_flags INTERFACE ${sanitize} -fno-omit-frame-pointer)
  target_link_options(pelm_flags INTERFACE ${sanitize})
endif()

# Which lines run. Several threads may count at once.
if(PELM_COVERAGE)
  target_compile_options(pelm_flags INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(pelm_flags INTERFACE --coverage)
endif()

# Times after 2038, and files whose size or inode number needs 64 bits, on 32-bit targets as well.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_definitions(pelm_flags INTERFACE _TIME_BITS=64 _FILE_OFFSET_BITS=64)
endif()

# What the distribution hardens its own packages with.
if(CMAKE_BUILD_TYPE MATCHES "Rel")
  target_compile_options(pelm_flags INTERFACE -fstack-protector-strong -D_FORTIFY_SOURCE=2)
  target_link_options(pelm_flags INTERFACE LINKER:-z,relro,-z,now)
endif()
