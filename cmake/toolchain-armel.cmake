# SPDX-License-Identifier: GPL-2.0-or-later
# ARMv5TE without floating point; emulated as one, so that a newer instruction is caught.
set(arm_architecture armel)
set(arm_triplet arm-linux-gnueabi)
set(arm_cpu arm926)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-arm.cmake)
