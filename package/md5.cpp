// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/md5.h"

#include <new>
#include <wolfssl/options.h>
// The order counts: the options say how the library was built.
#include <wolfssl/wolfcrypt/md5.h>

namespace {

static_assert(sizeof(wc_Md5) <= sizeof(MD5_context));
static_assert(alignof(wc_Md5) <= alignof(MD5_context));

wc_Md5 *library_context(MD5_context *context)
{
    return std::launder(reinterpret_cast<wc_Md5 *>(context->storage));
}

} // namespace

void MD5Init(MD5_context *context)
{
    // cppcheck-suppress ctuuninitvar ; this is what initialises it
    wc_InitMd5(new (context->storage) wc_Md5);
}

void MD5Update(MD5_context *context, const uint8_t *data, unsigned length)
{
    wc_Md5Update(library_context(context), data, length);
}

void MD5Final(uint8_t digest[md5_digest_size], MD5_context *context)
{
    wc_Md5Final(library_context(context), digest);
    wc_Md5Free(library_context(context));
}
