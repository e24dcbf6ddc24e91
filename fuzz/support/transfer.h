// SPDX-License-Identifier: GPL-2.0-or-later
//
// One download into a block buffer, and what must hold of the buffer behind it.
#pragma once

#include <cstdint>

#include "download/downloader.h"

namespace fuzz {

/// Opens `url` with `open` and downloads it into a buffer whose size `geometry` chooses. The
/// download's result, -1 also without a downloader or a buffer. The callback asks to stop with its
/// call number `callbacks`, with all calls when that is 0.
int transfer(downloader *(*open)(char *), char *url, uint8_t geometry, int callbacks);

} // namespace fuzz
