// SPDX-License-Identifier: GPL-2.0-or-later
//
// The table as a page for people.
#pragma once

#include <string>

namespace doctor {

/// docs/troubleshooting.md.
std::string page_text();

/// The rows' formats as a JSON array of texts, for the check that no message lacks a row.
std::string formats_text();

} // namespace doctor
