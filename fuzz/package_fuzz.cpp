// SPDX-License-Identifier: GPL-2.0-or-later
//
// A downloaded package on a device that the input describes: preparing, writing, verifying.
//
// A digest that is right by chance is never found, so the input may ask for its package to be
// completed as a maker would: magic, version, size and digest, and the cipher with the device's
// key.
#include <cstring>
#include <unistd.h>

#include "flash/flash.h"
#include "fuzz/support/fuzz.h"
#include "fuzz/support/world.h"
#include "package/decrypt.h"
#include "package/validate.h"
#include "platform/bytes.h"
#include "platform/device.h"
#include "platform/syscfg.h"
#include "upgrade/process.h"
#include "upgrade/status.h"

namespace {

// Bits of the input's first byte.
enum choice : uint8_t {
    choice_complete = 1,
    choice_vendor_key = 2,
    choice_empty_vendor_key = 4,
    choice_vendor_id = 8,
    choice_small_blocks = 16,
    choice_requirement = 32,
};

uint8_t choices;

void fill(iobuf *buffer, const std::vector<uint8_t> &bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        uint8_t *block = iobuf_request(buffer);
        if (block == nullptr)
            return;
        const size_t count = std::min(bytes.size() - done, static_cast<size_t>(buffer->block_size));
        memcpy(block, bytes.data() + done, count);
        done += count;
        buffer->total += static_cast<int>(count);
        iobuf_commit(buffer);
    }
}

void complete(iobuf *buffer)
{
    uint8_t *header = buffer->blocks[0];
    if (header == nullptr)
        return;
    const auto size = static_cast<uint32_t>(buffer->total);
    store_be32(header + package_magic_offset, package_magic);
    store_be16(header + package_version_offset, package_version);
    store_be32(header + package_size_offset, size);
    package record = {};
    init_package_struct(&record);
    read_package_head(&record, header, buffer->block_size);
    digest_package(&record, buffer, header + package_checksum_offset);
    const char *key = getsyscfg("VENDOR_KEY");
    if (key == nullptr)
        key = getsyscfg("VENID");
    if (record.encryp == encryption_rc4 && key != nullptr)
        cipher_package(&record, buffer, key);
}

void run_upgrade(upgrade_context *context, fuzz::world *world)
{
    if (process_package(context) < 0)
        return;
    context->stage = "WRITING";
    send_stage(context);
    bool writable = true;
    for (const package_part &part : context->package.parts)
        writable =
            writable && (part.type < 0 || part.size == 0 || part_type_is_writable(part.type));
    const int written = write_package(context);
    fuzz::require(written == 0 || !writable || world->fault != 0 || world->devices.size() < 9,
                  "a prepared package can be written");
    verify_package(context);
    for (const auto &[path, content] : world->devices)
        fuzz::require(content.size() == 4096 || (path >= partition_device(part_kernel).text &&
                                                 path <= partition_device(part_app).text),
                      "no other device is written");
}

} // namespace

extern "C" const char *getsyscfg(const char *key)
{
    if (strcmp(key, "VENDOR_KEY") == 0 && (choices & choice_vendor_key) != 0)
        return "secret";
    if (strcmp(key, "VENDOR_KEY") == 0 && (choices & choice_empty_vendor_key) != 0)
        return "";
    if (strcmp(key, "VENID") == 0 && (choices & choice_vendor_id) != 0)
        return "vendor";
    if (strcmp(key, "board") == 0)
        return "rev2";
    return strcmp(key, "ram") == 0 ? "128" : nullptr;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::input input(data, size);
    choices = input.byte();
    fuzz::world world;
    const uint8_t devices = input.byte();
    for (int i = 0; i < 8; i++) {
        if ((devices >> i & 1) != 0)
            world.devices[partition_device(i).text].resize(4096);
    }
    world.devices[gpio_device].resize(4096);
    const unsigned fault = input.word();
    const std::string requirement = input.text();
    std::vector<char> kernel = fuzz::exact_text("kernel_features=" + requirement);
    std::vector<char> base = fuzz::exact_text("base_features=" + requirement);
    char *variables[] = {kernel.data(), base.data(), nullptr};
    char *none[] = {nullptr};
    char **before = environ;
    environ = (choices & choice_requirement) != 0 ? variables : none;
    {
        const fuzz::run run(&world);
        upgrade_context context = {};
        context.iobuf = (choices & choice_small_blocks) != 0 ? iobuf_create(256, 64)
                                                             : iobuf_create(package_block_size, 6);
        init_package_struct(&context.package);
        fill(context.iobuf, input.rest());
        if ((choices & choice_complete) != 0)
            complete(context.iobuf);
        world.fault = fault;
        run_upgrade(&context, &world);
        fuzz::require(world.fault != 0 || fuzz::run::open_descriptors() <= 1,
                      "no descriptor is left but that of the part that failed");
    }
    environ = before;
    return 0;
}
