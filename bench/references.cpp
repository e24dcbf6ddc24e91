// SPDX-License-Identifier: GPL-2.0-or-later
#define OPENSSL_SUPPRESS_DEPRECATED // its plain functions: no look-up of providers in the figures
#include "bench/references.h"

#include <cstring>
#include <openssl/md5.h>
#include <openssl/rc4.h>
#include <zlib.h>

namespace reference {

void decipher_and_digest(std::span<uint8_t> bytes, const char *key, uint8_t digest[16])
{
    RC4_KEY state;
    RC4_set_key(&state, static_cast<int>(strlen(key)), reinterpret_cast<const uint8_t *>(key));
    RC4(&state, bytes.size(), bytes.data(), bytes.data());
    MD5(bytes.data(), bytes.size(), digest);
}

uint32_t crc32(std::span<const uint8_t> bytes)
{
    return static_cast<uint32_t>(::crc32(0, bytes.data(), static_cast<uInt>(bytes.size())));
}

} // namespace reference
