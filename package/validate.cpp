// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/validate.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/mman.h>

#include "package/md5.h"
#include "package/rc4.h"
#include "platform/syscfg.h"

namespace {

using visit_bytes = void (*)(void *state, uint8_t *bytes, int length);

void walk_blocks(const package *package, const iobuf *buffer, visit_bytes visit, void *state)
{
    const int block_size = buffer->block_size;
    // The whole rest of the first block, however short the package: the format's digest has it.
    visit(state, buffer->blocks[0] + package_header_size, block_size - package_header_size);
    int remaining = static_cast<int>(package->size) - block_size;
    int index = 1;
    for (; remaining > block_size; remaining -= block_size)
        visit(state, buffer->blocks[index++], block_size);
    if (remaining > 0)
        visit(state, buffer->blocks[index], remaining);
}

bool length_is_right(const package *package, const iobuf *buffer)
{
    if (package->size == static_cast<uint32_t>(buffer->total))
        return true;
    fprintf(stderr, "Bad package length!\n");
    return false;
}

void decipher_bytes(void *state, uint8_t *bytes, int length)
{
    rc4_crypt(static_cast<rc4_state *>(state), bytes, length);
}

void digest_bytes(void *state, uint8_t *bytes, int length)
{
    MD5Update(static_cast<MD5_context *>(state), bytes, static_cast<unsigned>(length));
}

// Committed blocks are read-only where the system can protect pages.
bool protect_blocks(const package *package, const iobuf *buffer, int protection)
{
    const int size = buffer->block_size;
    const int count = std::max(1, (static_cast<int>(package->size) + size - 1) / size);
    for (int i = 0; i < count; i++) {
        if (mprotect(buffer->blocks[i], static_cast<size_t>(size), protection) != 0 &&
            errno != ENOSYS)
            return false;
    }
    return true;
}

} // namespace

int decrypt_package(void *context, const package *package, iobuf *buffer)
{
    if (package->encryp == encryption_none) {
        const char *key = getsyscfg("VENDOR_KEY");
        return key != nullptr && key[0] != '\0' ? -1 : 0;
    }
    if (package->encryp == encryption_rc4)
        return decrypt_venid_rc4(context, package, buffer);
    return -1;
}

int decrypt_venid_rc4(void * /*context*/, const package *package, iobuf *buffer)
{
    const char *key = getsyscfg("VENDOR_KEY");
    if (key == nullptr)
        key = getsyscfg("VENID");
    if (key == nullptr) {
        fprintf(stderr, "No key!\n");
        return -1;
    }
    fprintf(stderr, "decrypt using: %s\n", key);
    if (!length_is_right(package, buffer))
        return 0; // the check of the package says so again, and refuses it
    return cipher_package(package, buffer, key);
}

int cipher_package(const package *package, iobuf *buffer, const char *key)
{
    rc4_state state;
    rc4_setup(&state, reinterpret_cast<const uint8_t *>(key), static_cast<int>(strlen(key)));
    if (!protect_blocks(package, buffer, PROT_READ | PROT_WRITE))
        return -1;
    walk_blocks(package, buffer, decipher_bytes, &state);
    return protect_blocks(package, buffer, PROT_READ) ? 0 : -1;
}

void digest_package(const package *package, const iobuf *buffer, uint8_t *digest)
{
    MD5_context context;
    MD5Init(&context);
    walk_blocks(package, buffer, digest_bytes, &context);
    MD5Final(digest, &context);
}

int valid_package(void * /*context*/, const package *package, const iobuf *buffer)
{
    if (!length_is_right(package, buffer))
        return 0;
    uint8_t digest[md5_digest_size];
    digest_package(package, buffer, digest);
    if (memcmp(digest, package->checksum, sizeof digest) == 0)
        return 1;
    fprintf(stderr, "Checksum error!\n");
    return 0;
}
