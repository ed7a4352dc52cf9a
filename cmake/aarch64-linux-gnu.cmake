# Cross build for 64-bit Arm Linux with Debian's g++-aarch64-linux-gnu, against an arm64
# sysroot that holds the target's OpenCV and GoogleTest (scripts/make-aarch64-sysroot makes
# one). CTest runs the test programs through qemu user-mode emulation (scripts/run-aarch64).
#
#   cmake -S . -B build-aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake \
#         [-DZT_AARCH64_SYSROOT=/path/to/sysroot]
#
# The sysroot comes from the cache variable ZT_AARCH64_SYSROOT, else from the environment
# variable of the same name, else from the folder scripts/make-aarch64-sysroot uses by default.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(_zt_triplet aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${_zt_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${_zt_triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${_zt_triplet})

if(NOT ZT_AARCH64_SYSROOT)
    if(DEFINED ENV{ZT_AARCH64_SYSROOT} AND NOT "$ENV{ZT_AARCH64_SYSROOT}" STREQUAL "")
        set(_zt_sysroot "$ENV{ZT_AARCH64_SYSROOT}")
    elseif(DEFINED ENV{XDG_CACHE_HOME} AND NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
        set(_zt_sysroot "$ENV{XDG_CACHE_HOME}/ztimage/sysroot-aarch64")
    else()
        set(_zt_sysroot "$ENV{HOME}/.cache/ztimage/sysroot-aarch64")
    endif()
    set(ZT_AARCH64_SYSROOT "${_zt_sysroot}" CACHE PATH "arm64 sysroot for the cross build")
endif()
if(NOT EXISTS "${ZT_AARCH64_SYSROOT}/usr/include/opencv4/opencv2/core.hpp")
    message(FATAL_ERROR "ZT_AARCH64_SYSROOT='${ZT_AARCH64_SYSROOT}' is not an arm64 sysroot with "
        "OpenCV: make one with scripts/make-aarch64-sysroot, or point ZT_AARCH64_SYSROOT at one")
endif()
# try_compile projects read this file again without the cache; the environment carries
# the sysroot into them.
set(ENV{ZT_AARCH64_SYSROOT} "${ZT_AARCH64_SYSROOT}")

set(CMAKE_SYSROOT "${ZT_AARCH64_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH "${ZT_AARCH64_SYSROOT}")
# Build tools come from the host; headers, libraries and package files only from the sysroot.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Test programs run under qemu user-mode emulation, with the loader and libraries of the
# sysroot, through a wrapper that also lets a program re-execute itself (death tests do).
find_program(ZT_QEMU_AARCH64 qemu-aarch64)
if(ZT_QEMU_AARCH64)
    get_filename_component(_zt_run "${CMAKE_CURRENT_LIST_DIR}/../scripts/run-aarch64" ABSOLUTE)
    set(CMAKE_CROSSCOMPILING_EMULATOR "${_zt_run};-L;${ZT_AARCH64_SYSROOT}")
else()
    message(WARNING "qemu-aarch64 not found (Debian package qemu-user): the tests will build but not run")
endif()
