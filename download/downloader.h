// SPDX-License-Identifier: GPL-2.0-or-later
//
// What every transfer protocol implements: one object, made from a URL, with three operations.
//
// A protocol's object begins with a `downloader`, so that its address is the downloader's; each
// protocol's header declares just one function, which opens it.
#pragma once

#include "download/iobuf.h"
#include "platform/progress.h"

struct downloader;

struct downloader_ops {
    /// Size of the package in bytes as far as the protocol knows it by now, 0 when it does not.
    int (*length)(downloader *self);
    /// Fetches the whole package into `buffer`. Negative on failure, else 0 or more. `callback`
    /// may be null, and a protocol may never call it.
    int (*download)(downloader *self, iobuf *buffer, progress_callback callback, void *argument);
    /// 0 in every protocol.
    int (*result)(downloader *self);
};

struct downloader {
    const downloader_ops *ops;
};
