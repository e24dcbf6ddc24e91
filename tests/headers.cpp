// SPDX-License-Identifier: GPL-2.0-or-later
//
// Only so that CMake has something to precompile GoogleTest's header for.
#include <gtest/gtest.h>
