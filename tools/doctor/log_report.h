// SPDX-License-Identifier: GPL-2.0-or-later
//
// What `fwdoctor log` prints. Passwords are masked, keys are not in it, and text out of the log is
// made safe for a terminal.
#pragma once

#include <string>

#include "tools/common/json.h"
#include "tools/doctor/log.h"

namespace doctor {

std::string log_text(const log_file &file);
json log_json(const log_file &file);

} // namespace doctor
