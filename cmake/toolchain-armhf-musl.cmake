# SPDX-License-Identifier: GPL-2.0-or-later
# ARMv7 with hardware floating point, static, on musl.
set(musl_architecture armhf)
set(musl_triplet arm-linux-gnueabihf)
set(musl_folder arm-linux-musleabihf)
set(musl_emulator qemu-arm-static)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-musl.cmake)
