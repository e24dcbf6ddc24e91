// SPDX-License-Identifier: GPL-2.0-or-later
//
// Status datagrams, and the progress callback that everything long-lasting calls.
//
// A datagram is a short text without NUL or newline (docs/status-datagrams.md), echoed on standard
// error and sent first to /tmp/.upgrd_info and then to /tmp/.syscfg-server, over a new socket each
// time. A receiver that is missing never disturbs the upgrade; one that does not read costs at most
// two seconds a datagram.
#pragma once

#include "upgrade/context.h"

/// Sends "UPGRD_PERCENTAGE=" and the context's percentage.
void send_percentage(upgrade_context *context);

/// Sends "UPGRD_STAGE=" and the context's stage (not null), then resets `received` and `percent` to
/// 0 and sends that percentage.
void send_stage(upgrade_context *context);

/// Sends "UPGRD_ERROR=" and `text`. The one sender that reports when the first receiver cannot be
/// reached. The context is not used.
void send_error(upgrade_context *context, const char *text);

/// The progress callback, a progress_callback: `argument` is the upgrade_context, `count` the bytes
/// just processed. Kicks the watchdog, reports the stage "DOWNLOADING" at the first call of a run
/// (that is when the downloader is asked for the length), and reports the percentage whenever it
/// grows. A stage whose total is 0 or less has no percentage; one that receives more than its total
/// passes 100. Always 1, which says go on.
int upgrade_callback(void *argument, int count);
