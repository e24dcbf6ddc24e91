// SPDX-License-Identifier: GPL-2.0-or-later
//
// Where simdev finds what belongs to it, in the build tree and where it is installed.
#pragma once

#include <filesystem>

namespace simdev {

/// The `upgrade` beside this simdev. Throws failure.
std::filesystem::path find_program();

/// libsimdev_preload.so. Throws failure.
std::filesystem::path find_preload();

/// Whether the program has the model linked into it and so needs no preloaded library. Throws
/// failure for a file that cannot be read.
bool is_wrapped(const std::filesystem::path &program);

/// Whether the dynamic loader starts the program with a preloaded library of this machine: not
/// where it is linked statically or for another machine. What is no ELF file is left to whoever
/// starts it. Throws failure for a file that cannot be read.
bool takes_preload(const std::filesystem::path &program);

} // namespace simdev
