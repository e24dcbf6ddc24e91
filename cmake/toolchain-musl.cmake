# SPDX-License-Identifier: GPL-2.0-or-later
# Static programs on musl, with the GNU compiler that is there for the GNU C library. Expects
# `musl_architecture` (Debian's name), `musl_triplet` (of the compiler's programs), `musl_folder`
# (where Debian's musl-dev keeps its libraries) and `musl_emulator` (may be empty). scripts/setup-musl
# makes the root.
#
# Such a compiler's C++ headers were configured for the other C library, and its C++ run time was
# built on it. The device program needs no run time, and of the headers only what is written in them:
# so they come first, with one file of them replaced (cmake/musl), then musl's, then the compiler's own.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${musl_architecture})
set(CMAKE_CXX_COMPILER ${musl_triplet}-g++)
set(musl_root ${CMAKE_CURRENT_LIST_DIR}/../build/musl/${musl_architecture}/root)
get_filename_component(musl_root ${musl_root} ABSOLUTE)
set(musl_library ${musl_root}/usr/lib/${musl_folder})

execute_process(COMMAND ${CMAKE_CXX_COMPILER} -E -v -x c++ /dev/null
    OUTPUT_QUIET ERROR_VARIABLE musl_said COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "\n [^\n]*/c\\+\\+/[^\n]*" musl_headers "${musl_said}")
list(TRANSFORM musl_headers STRIP)
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=include
    OUTPUT_VARIABLE musl_own_headers OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)

set(CMAKE_CXX_FLAGS_INIT "-fPIE -nostdinc -nostdinc++")
foreach(folder ${CMAKE_CURRENT_LIST_DIR}/musl ${musl_headers} ${musl_root}/usr/include/${musl_folder}
        ${musl_own_headers})
    string(APPEND CMAKE_CXX_FLAGS_INIT " -isystem ${folder}")
endforeach()
# Without the compiler's start files, which belong to the other C library as well. Musl has start code
# for movable static programs, on all architectures; some of the compilers would name a loader even so.
set(UPGRADE_STATIC_FLAGS -static-pie -Wl,--no-dynamic-linker -Wl,-z,text)
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-nostdlib -L${musl_library} ${musl_library}/rcrt1.o ${musl_library}/crti.o")
set(CMAKE_CXX_STANDARD_LIBRARIES
    "-Wl,--start-group -lc -lgcc -Wl,--end-group ${musl_library}/crtn.o")

set(CMAKE_FIND_ROOT_PATH ${musl_root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR ${musl_emulator})
