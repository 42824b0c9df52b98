# Cross-builds by Debian's compilers for PELM_TARGET, such as aarch64-linux-gnu, against the root that
# "./dev on" has unpacked in CMAKE_SYSROOT. What is built runs in the emulator, which finds its
# libraries there too. The preset sets both.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PELM_TARGET CMAKE_SYSROOT)
string(REGEX MATCH "^[^-]+" machine ${PELM_TARGET})
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${machine})
set(CMAKE_C_COMPILER ${PELM_TARGET}-gcc)
set(CMAKE_CXX_COMPILER ${PELM_TARGET}-g++)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${machine} -L ${CMAKE_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/${PELM_TARGET}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
