// SPDX-License-Identifier: GPL-2.0-or-later
//
// Between the caught calls and what answers them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/select.h>
#include <sys/types.h>

namespace fuzz {

/// Whether calls of this thread are caught.
bool caught();

/// Counts a caught call that may fail. True when it is the one to fail; errno is then set.
bool fails_now();

bool is_ours(int fd);
int open_device(const char *path);
int open_socket(int type);
int close_descriptor(int fd);
int connect_stream(int fd);
/// Whether there is something to read (an end or a failure counts); takes a silence away.
bool readable(int fd);
ssize_t read_descriptor(int fd, void *buffer, size_t size);
ssize_t write_descriptor(int fd, const void *buffer, size_t size);
ssize_t receive_datagram(void *buffer, size_t size, uint16_t *port);
ssize_t send_datagram(const uint8_t *packet, size_t size);
off_t seek_device(int fd, off_t offset, int whence);

/// Memory that is released at the end of the run, unless it is null; returns it.
void *keep(void *memory);
void forget(void *memory);

} // namespace fuzz
