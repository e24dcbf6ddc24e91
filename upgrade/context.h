// SPDX-License-Identifier: GPL-2.0-or-later
//
// The one record of a run. Data only: everything below the program reads and writes it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "download/downloader.h"
#include "download/iobuf.h"
#include "package/package.h"
#include "platform/device.h"

/// The records are named as their types are, which therefore stand qualified.
///
/// A local of `main`, zero-filled, that lives for the whole run.
struct upgrade_context {
    ::package package;        ///< first, so that a pointer to the context is one to the package
    ::downloader *downloader; ///< asked for its length by the progress callback
    ::iobuf *iobuf;           ///< the downloaded package
    const char *stage;        ///< current stage; null until the first progress call
    int32_t total;            ///< expected bytes of the current stage; 0 or less: not known
    int32_t received;         ///< bytes processed in the current stage
    int32_t percent;          ///< last percentage reported
    watchdog_record watchdog;
};
static_assert(offsetof(upgrade_context, package) == 0);
