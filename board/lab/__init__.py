# SPDX-License-Identifier: GPL-2.0-or-later
"""The laboratory around the emulated board: servers, emulator, flash, what is expected of them."""
