# SPDX-License-Identifier: GPL-2.0-or-later
# 64-bit PCs, static, on musl.
set(musl_architecture amd64)
set(musl_triplet x86_64-linux-gnu)
set(musl_folder x86_64-linux-musl)
set(musl_emulator "")
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-musl.cmake)
