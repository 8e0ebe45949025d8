# SPDX-License-Identifier: MIT
# Toolchain file for a board of another architecture, by Debian's cross compiler (g++-arm-linux-gnueabihf, say) and an
# unpacked root of the board's architecture (scripts/sysroot, or that of an image), whose absolute path is SYSROOT:
#   cmake -DCMAKE_TOOLCHAIN_FILE=packaging/cross.cmake -DKADO_TRIPLET=arm-linux-gnueabihf -DCMAKE_SYSROOT=SYSROOT ...
# Qt's code generators run on this machine: its own Qt development package has to be there, of the board's major version.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KADO_TRIPLET)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR "${KADO_TRIPLET}")
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_CXX_COMPILER "${KADO_TRIPLET}-g++")
set(CMAKE_LIBRARY_ARCHITECTURE "${KADO_TRIPLET}")

# Programs are this machine's, all the rest is the board's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR} "${CMAKE_SYSROOT}/usr/lib/${KADO_TRIPLET}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")

# QT_HOST_PATH alone would find the generators of the sysroot, where the same path exists.
if(NOT DEFINED QT_HOST_PATH)
    set(QT_HOST_PATH /usr)
    set(QT_HOST_PATH_CMAKE_DIR "/usr/lib/${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-gnu/cmake")
endif()
