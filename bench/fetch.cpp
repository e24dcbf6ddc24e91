// SPDX-License-Identifier: GPL-2.0-or-later
//
// Downloads a URL as the program does, into a buffer of the program's size, and prints the result,
// the bytes stored and their CRC-32. Nothing is written.
//
//     fetch URL [CA FILE]
#include <algorithm>
#include <csignal>
#include <cstdio>

#include "download/downloaders.h"
#include "flash/crc32.h"
#include "package/format.h"

struct WOLFSSL_CTX;

namespace {

const char *ca_file = nullptr;

int go_on(void * /*argument*/, int /*count*/)
{
    return 1;
}

} // namespace

#pragma GCC diagnostic ignored "-Wmissing-declarations" // the wraps, by the linker's names

extern "C" {
int __real_wolfSSL_CTX_load_verify_locations(WOLFSSL_CTX *, const char *, const char *);
int __wrap_wolfSSL_CTX_load_verify_locations(WOLFSSL_CTX *context, const char *file,
                                             const char *folder)
{
    return __real_wolfSSL_CTX_load_verify_locations(context, ca_file == nullptr ? file : ca_file,
                                                    folder);
}
}

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: fetch URL [CA FILE]\n");
        return 2;
    }
    ca_file = argc > 2 ? argv[2] : nullptr;
    signal(SIGPIPE, SIG_IGN);
    iobuf *buffer = iobuf_create(package_block_size, package_block_count);
    downloader *source = downloader_open(argv[1]);
    if (buffer == nullptr || source == nullptr)
        return 1;
    const int result = source->ops->download(source, buffer, go_on, nullptr);
    uint32_t crc = 0;
    for (int at = 0; at < buffer->total; at += 4096)
        crc = crc32(crc, buffer->blocks[at / 4096], std::min(4096, buffer->total - at));
    printf("%d %d %u\n", result, buffer->total, crc);
    return result == 0 ? 0 : 1;
}
