// SPDX-License-Identifier: GPL-2.0-or-later
//
// A described device's configuration and requirements where the device's code looks for them.
//
// This unit links its own getsyscfg (platform/syscfg.h) in place of the default provider, as a
// device may: the host's configuration file plays no part in fwpkg.
#pragma once

#include "tools/device/device.h"

namespace fwpkg {

/// While it lives, getsyscfg answers from the description and the environment has exactly its
/// requirement variables. Without one no key is set. Not to be nested; the description outlives it.
class device_configuration {
public:
    explicit device_configuration(const device &description);
    ~device_configuration();
    device_configuration(const device_configuration &) = delete;
    device_configuration &operator=(const device_configuration &) = delete;
};

} // namespace fwpkg
