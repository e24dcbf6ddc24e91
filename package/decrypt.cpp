// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/decrypt.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/mman.h>

#include "package/payload.h"
#include "package/rc4.h"
#include "platform/syscfg.h"

namespace {

void decipher_bytes(void *state, uint8_t *bytes, int length)
{
    rc4_crypt(static_cast<rc4_state *>(state), bytes, length);
}

// Committed blocks are read-only where the system can protect pages.
bool protect_blocks(const package *record, const iobuf *buffer, int protection)
{
    const int size = buffer->block_size;
    const int count = std::max(1, (static_cast<int>(record->size) + size - 1) / size);
    for (int i = 0; i < count; i++) {
        if (mprotect(buffer->blocks[i], static_cast<size_t>(size), protection) != 0 &&
            errno != ENOSYS)
            return false;
    }
    return true;
}

} // namespace

int decrypt_package(void *context, const package *record, iobuf *buffer)
{
    if (record->encryp == encryption_none) {
        const char *key = getsyscfg("VENDOR_KEY");
        return key != nullptr && key[0] != '\0' ? -1 : 0;
    }
    if (record->encryp == encryption_rc4)
        return decrypt_venid_rc4(context, record, buffer);
    return -1;
}

int decrypt_venid_rc4(void * /*context*/, const package *record, iobuf *buffer)
{
    const char *key = getsyscfg("VENDOR_KEY");
    if (key == nullptr)
        key = getsyscfg("VENID");
    if (key == nullptr) {
        fprintf(stderr, "No key!\n");
        return -1;
    }
    fprintf(stderr, "decrypt using: %s\n", key);
    if (!package_length_is_right(record, buffer))
        return 0; // the check of the package says so again, and refuses it
    return cipher_package(record, buffer, key);
}

int cipher_package(const package *record, iobuf *buffer, const char *key)
{
    rc4_state state;
    rc4_setup(&state, reinterpret_cast<const uint8_t *>(key), static_cast<int>(strlen(key)));
    if (!protect_blocks(record, buffer, PROT_READ | PROT_WRITE))
        return -1;
    walk_payload(record, buffer, decipher_bytes, &state);
    return protect_blocks(record, buffer, PROT_READ) ? 0 : -1;
}
