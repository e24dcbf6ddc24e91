# SPDX-License-Identifier: GPL-2.0-or-later
# ARMv5TE without floating point, static, on musl; emulated as one.
set(musl_architecture armel)
set(musl_triplet arm-linux-gnueabi)
set(musl_folder arm-linux-musleabi)
set(musl_emulator qemu-arm-static -cpu arm926)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-musl.cmake)
