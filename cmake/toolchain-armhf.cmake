# SPDX-License-Identifier: GPL-2.0-or-later
# ARMv7 with hardware floating point.
set(arm_architecture armhf)
set(arm_triplet arm-linux-gnueabihf)
set(arm_cpu "")
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-arm.cmake)
