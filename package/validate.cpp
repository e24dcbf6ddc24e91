// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/validate.h"

#include <cstdio>
#include <cstring>

#include "package/md5.h"
#include "package/payload.h"

namespace {

void digest_bytes(void *state, uint8_t *bytes, int length)
{
    MD5Update(static_cast<MD5_context *>(state), bytes, static_cast<unsigned>(length));
}

} // namespace

void digest_package(const package *record, const iobuf *buffer, uint8_t *digest)
{
    MD5_context context;
    MD5Init(&context);
    walk_payload(record, buffer, digest_bytes, &context);
    MD5Final(digest, &context);
}

int valid_package(void * /*context*/, const package *record, const iobuf *buffer)
{
    if (!package_length_is_right(record, buffer))
        return 0;
    uint8_t digest[md5_digest_size];
    digest_package(record, buffer, digest);
    if (memcmp(digest, record->checksum, sizeof digest) == 0)
        return 1;
    fprintf(stderr, "Checksum error!\n");
    return 0;
}
