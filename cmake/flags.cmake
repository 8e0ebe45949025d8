# SPDX-License-Identifier: MIT
# Defines two interface libraries: kado_flags has the options of every target, kado_release those of an installed program.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckIPOSupported)

add_library(kado_flags INTERFACE)
target_compile_options(kado_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor
    -Woverloaded-virtual -Wcast-align -Wunused -Wnull-dereference -Wdouble-promotion -Wformat=2 -Wimplicit-fallthrough
    $<$<BOOL:${KADO_WERROR}>:-Werror>)
target_compile_definitions(kado_flags INTERFACE QT_NO_KEYWORDS QT_NO_CAST_FROM_BYTEARRAY QT_NO_URL_CAST_FROM_STRING
                                                QT_DEPRECATED_WARNINGS)
if(KADO_SANITIZE)
    target_compile_options(kado_flags INTERFACE -fsanitize=${KADO_SANITIZE} -fno-sanitize-recover=all
                                                -fno-omit-frame-pointer)
    target_link_options(kado_flags INTERFACE -fsanitize=${KADO_SANITIZE})
    target_compile_definitions(kado_flags INTERFACE KADO_SANITIZED)
endif()
if(KADO_FUZZ)
    target_compile_options(kado_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# docs/performance.md tells how much each option saves. No unwind tables: gdb reads a core dump by the debug information.
add_library(kado_release INTERFACE)
target_compile_options(kado_release INTERFACE
    "$<${release}:-Os;-fno-exceptions;-fno-asynchronous-unwind-tables;-fno-plt>")
target_link_options(kado_release INTERFACE "$<${release}:-fno-asynchronous-unwind-tables>") # the linker compiles, too

# Packed relocations need a linker and a C library that know them. A linker that does not know the option only warns,
# so --fatal-warnings comes first.
set(CMAKE_REQUIRED_LINK_OPTIONS -Wl,--fatal-warnings -Wl,-z,pack-relative-relocs)
check_cxx_source_compiles("#include <features.h>
    #if !__GLIBC_PREREQ(2, 36)
    #error
    #endif
    int main() {}" KADO_PACKS_RELOCATIONS)
unset(CMAKE_REQUIRED_LINK_OPTIONS)
if(KADO_PACKS_RELOCATIONS)
    target_link_options(kado_release INTERFACE "$<${release}:-Wl,-z,pack-relative-relocs>")
endif()

if(KADO_HARDENING)
    # With -fPIE, CMake's choice for programs, linker and optimizer may copy Qt's static objects into the program, but Qt
    # compares their addresses.
    target_compile_options(kado_flags INTERFACE -fPIC)
    target_link_options(kado_flags INTERFACE
        $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie> -Wl,-z,relro -Wl,-z,now)
    # Optimized builds alone: _FORTIFY_SOURCE needs the optimizer, and AddressSanitizer does the same work in debug builds.
    target_compile_options(kado_flags INTERFACE "$<${release}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
    foreach(option -fstack-protector-strong -fstack-clash-protection -fcf-protection -mbranch-protection=standard)
        string(MAKE_C_IDENTIFIER "KADO_HAS${option}" has)
        check_cxx_compiler_flag(${option} ${has})
        if(${has})
            target_compile_options(kado_flags INTERFACE "$<${release}:${option}>")
        endif()
    endforeach()
endif()

# Whether the program is optimized as a whole. With clang not beside tests, because its objects then have no machine code
# for the tests to link.
check_ipo_supported(RESULT KADO_IPO LANGUAGES CXX OUTPUT why_not)
if(BUILD_TESTING AND NOT CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    set(KADO_IPO OFF)
endif()
