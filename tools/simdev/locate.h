// SPDX-License-Identifier: GPL-2.0-or-later
//
// Where simdev finds what belongs to it, in the build tree and where it is installed.
#pragma once

#include <filesystem>

namespace simdev {

/// The `upgrade` beside this simdev. Throws failure.
std::filesystem::path find_program();

/// The libsimdev_preload.so to start `program` with; empty for one that has the model linked into
/// it. Throws failure for a file that cannot be read, and for one that the dynamic loader does not
/// start with a library of this machine: linked statically, or for another machine. What is no ELF
/// file is left to whoever starts it.
std::filesystem::path find_preload(const std::filesystem::path &program);

} // namespace simdev
