# SPDX-License-Identifier: GPL-2.0-or-later
# What both ARM architectures share. Expects `arm_architecture` (Debian's name), `arm_triplet` and
# `arm_cpu` (what the emulator plays; empty for its default). scripts/setup-arm makes the root.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_CXX_COMPILER ${arm_triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${arm_triplet})

get_filename_component(arm_root ${CMAKE_CURRENT_LIST_DIR}/../build/arm/${arm_architecture}/root ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${arm_root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${arm_root}/usr/include)

# The cross compiler's own C library is the emulated program's file system root; the TLS library is
# found by the run path that a program has in the build tree.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L /usr/${arm_triplet})
if(arm_cpu)
    list(APPEND CMAKE_CROSSCOMPILING_EMULATOR -cpu ${arm_cpu})
endif()
