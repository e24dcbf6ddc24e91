// SPDX-License-Identifier: GPL-2.0-or-later
//
// The commands as the command line names them. Each returns the exit status
// (tools/common/failure.h) and throws failure.
#pragma once

#include "tools/fwpkg/inputs.h"

namespace fwpkg {

int make_command(const command_options &options);
int show_command(const command_options &options);
int check_command(const command_options &options);
int plan_command(const command_options &options);
int diff_command(const command_options &options);
int condition_command(const command_options &options);
int extract_command(const command_options &options);

} // namespace fwpkg
