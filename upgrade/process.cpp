// SPDX-License-Identifier: GPL-2.0-or-later
#include "upgrade/process.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "package/conditions.h"
#include "package/validate.h"
#include "platform/device.h"
#include "platform/syscfg.h"

namespace {

int refuse(const char *message)
{
    fprintf(stderr, "%s\n", message);
    return -1;
}

// Drops a part that is optional: it then needs no room and is not written. False for a mandatory
// one, which refuses the package.
bool drop_part(package_part *part)
{
    if ((part->flags & part_flag_optional) == 0)
        return false;
    part->actual_size = 0;
    part->size = 0;
    return true;
}

// Whether the part may stay or could be dropped. Both questions are always asked, the device's even
// of a part that its own conditions just dropped: asking uses up the device's requirement text.
// Malformed code (-1) counts as met.
bool part_applies(package_part *part)
{
    if (eval_conditions(part->conditions, part->conditions_length, getsyscfg) == 0 &&
        !drop_part(part))
        return false;
    return eval_features(static_cast<uint32_t>(part->type), part->features,
                         part->features_length) != 0 ||
           drop_part(part);
}

// Null when the part's partition is there and large enough, else what is wrong.
const char *partition_fault(const package_part *part)
{
    const int fd = open(partition_device(part->type).text, O_WRONLY);
    if (fd < 0)
        return "cannot open target device";
    // A size that cannot be found is -1, which is larger than any part when unsigned.
    const auto size = static_cast<uint64_t>(lseek(fd, 0, SEEK_END));
    close(fd);
    return size < part->actual_size ? "not enougth space on target device" : nullptr;
}

// Drops the parts that do not apply or fit and adds up the rest. False when the package is refused.
bool select_parts(package *package, uint32_t *sum)
{
    for (package_part &part : package->parts) {
        if (part.type < 0)
            break;
        if (!part_applies(&part))
            return false;
        if (part.actual_size == 0)
            continue;
        const char *fault = partition_fault(&part);
        if (fault == nullptr) {
            *sum += part.actual_size;
        } else if (!drop_part(&part)) {
            refuse(fault);
            return false;
        }
    }
    return true;
}

// Whether all blocks that the flash writer would take for `part` were downloaded. It takes none for
// a size that is 0 or less as a signed number.
bool part_is_present(const package_part *part, const iobuf *buffer)
{
    const auto size = static_cast<int32_t>(part->size);
    if (!part_type_is_writable(part->type) || size <= 0)
        return true;
    const int64_t first = part->offset / static_cast<uint32_t>(buffer->block_size);
    const int64_t count = (int64_t{size} + buffer->block_size - 1) / buffer->block_size;
    const int64_t end = first + count;
    if (end > buffer->count)
        return false;
    for (int64_t index = first; index < end; index++) {
        if (buffer->blocks[index] == nullptr)
            return false;
    }
    return true;
}

bool parts_are_present(const package *package, const iobuf *buffer)
{
    for (int index = 0; index < package_part_count && package->parts[index].type >= 0; index++) {
        if (!part_is_present(&package->parts[index], buffer)) {
            fprintf(stderr, "data of part #%d is not in the package\n", index);
            return false;
        }
    }
    return true;
}

} // namespace

int process_package(upgrade_context *context)
{
    package *package = &context->package;
    iobuf *buffer = context->iobuf;
    const uint8_t *first_block = buffer->blocks[0];
    if (first_block == nullptr || read_package_head(package, first_block, buffer->block_size) < 0)
        return refuse("error reading package");
    if (decrypt_package(context, package, buffer) < 0)
        return refuse("decrypt package failed");
    if (valid_package(context, package, buffer) == 0)
        return refuse("invalid package");
    if (read_package_parts(package, first_block, buffer->block_size) < 0)
        return refuse("error reading package parts");
    dump_package(package);
    uint32_t sum = 0;
    if (!select_parts(package, &sum) || !parts_are_present(package, buffer))
        return -1;
    context->total = static_cast<int32_t>(sum);
    return 0;
}

int run_script(const char *path)
{
    char *const arguments[] = {const_cast<char *>(path), nullptr};
    // vfork: nothing is set aside for a second address space, so that the script starts even where
    // the package left little memory.
    const pid_t child = vfork(); // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (child == 0) {
        // The script is not to inherit that it is ignored; a bare system call, safe in this child.
        signal(SIGPIPE, SIG_DFL); // NOLINT(clang-analyzer-unix.Vfork)
        execv(path, arguments);
        _exit(-1);
    }
    if (child < 0)
        return child;
    int status = 0;
    pid_t result = 0;
    do { // a script that never ends is ended by the watchdog
        result = waitpid(child, &status, 0);
    } while (result < 0 && errno == EINTR);
    return result;
}
