# 32-bit ARM, hard float. VYN_SYSROOT is the folder with the target's headers and libraries;
# VYN_TOOL_PREFIX names another compiler of the same kind. See docs/cross_build.md.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(VYN_SYSROOT "$ENV{VYN_SYSROOT}" CACHE PATH "Headers and libraries of the target")
set(VYN_TOOL_PREFIX arm-linux-gnueabihf- CACHE STRING "What stands in front of gcc and g++")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VYN_SYSROOT VYN_TOOL_PREFIX)
if(NOT IS_DIRECTORY "${VYN_SYSROOT}")
    message(FATAL_ERROR "VYN_SYSROOT=${VYN_SYSROOT} is not a folder: set it to the target's sysroot")
endif()

set(CMAKE_SYSROOT ${VYN_SYSROOT})
set(CMAKE_C_COMPILER ${VYN_TOOL_PREFIX}gcc)
set(CMAKE_CXX_COMPILER ${VYN_TOOL_PREFIX}g++)
# Libraries are looked for in Debian's folders for ARM, then in the plain ones.
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

# Programs such as protoc are this machine's; libraries and headers are the target's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${VYN_SYSROOT})
set(pkgconfig_folders ${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig pkgconfig ../share/pkgconfig)
list(TRANSFORM pkgconfig_folders PREPEND ${VYN_SYSROOT}/usr/lib/)
list(JOIN pkgconfig_folders ":" pkgconfig_folders)
set(ENV{PKG_CONFIG_LIBDIR} ${pkgconfig_folders})

# Tests run on this machine, under the emulator.
find_program(VYN_QEMU qemu-arm)
if(VYN_QEMU)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${VYN_QEMU} -L ${VYN_SYSROOT})
endif()
