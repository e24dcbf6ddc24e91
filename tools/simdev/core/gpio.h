// SPDX-License-Identifier: GPL-2.0-or-later
//
// The GPIO device: it takes the watchdog's kicks. A kick for a line that is none (below 0) is
// answered as any other and feeds nothing.
#pragma once

#include "tools/simdev/core/descriptors.h"

void gpio_start();

/// Contract of ioctl.
int sim_ioctl(int fd, unsigned long request, void *argument);
