// SPDX-License-Identifier: GPL-2.0-or-later
//
// The present state in a file that is always whole.
#pragma once

#include "tools/follow/json.h"

namespace follow {

/// Replaces `path` by `text` and a newline: written beside it as `path`.new, then renamed. With
/// `lasting` the content is on the disk before. False with errno; the old file then stands as it
/// was.
bool replace_file(const char *path, const text_buffer *text, bool lasting);

} // namespace follow
