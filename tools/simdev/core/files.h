// SPDX-License-Identifier: GPL-2.0-or-later
//
// The device's fixed paths, which lead into the device folder, and the calls on descriptors, each
// handed to the unit that it is of. Everything else goes to the real system. Each function has the
// contract of the call that it is named for.
#pragma once

#include <cstddef>
#include <cstdio>
#include <sys/types.h>

/// 0, or -1 with a line in `error` for a folder whose path is too long.
int files_start(const char *folder, char *error, size_t error_size);

/// Where the device's file `path`, which is shorter than 64 characters, really lies.
constexpr size_t real_path_capacity = 512;
using real_path = char[real_path_capacity];
void put_into_folder(const char *path, real_path &into);

int sim_open(const char *path, int flags, mode_t mode);
FILE *sim_fopen(const char *path, const char *mode);
ssize_t sim_read(int fd, void *buffer, size_t size);
ssize_t sim_write(int fd, const void *buffer, size_t size);
off64_t sim_lseek(int fd, off64_t offset, int whence);
int sim_close(int fd);
