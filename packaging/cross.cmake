# SPDX-License-Identifier: MIT
# Toolchain file for a board of another architecture. It needs Debian's cross compiler (g++-arm-linux-gnueabihf, for instance),
# an unpacked root of the board (from scripts/sysroot, or an image with headers) whose absolute path is SYSROOT, and this
# machine's Qt development package of the same major version, because Qt's code generators run here:
#   cmake -B build -DCMAKE_TOOLCHAIN_FILE=packaging/cross.cmake -DKADO_TRIPLET=arm-linux-gnueabihf -DCMAKE_SYSROOT=SYSROOT
# The root's libraries may be in Debian's /usr/lib/TRIPLET or in /usr/lib.
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
string(JOIN ":" pkgconfig_folders
    "${CMAKE_SYSROOT}/usr/lib/${KADO_TRIPLET}/pkgconfig"
    "${CMAKE_SYSROOT}/usr/lib/pkgconfig"
    "${CMAKE_SYSROOT}/usr/lib64/pkgconfig"
    "${CMAKE_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_LIBDIR} "${pkgconfig_folders}")

# Qt 6 takes its generators from QT_HOST_PATH. That alone would find those of the root, where the same path exists.
if(NOT DEFINED QT_HOST_PATH)
    set(QT_HOST_PATH /usr)
    set(QT_HOST_PATH_CMAKE_DIR "/usr/lib/${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-gnu/cmake")
endif()
# Qt 5 knows no such path.
set(CMAKE_PROJECT_kado-bt_INCLUDE "${CMAKE_CURRENT_LIST_DIR}/qt5hosttools.cmake")
