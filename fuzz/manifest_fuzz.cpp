// SPDX-License-Identifier: GPL-2.0-or-later
//
// A manifest of fwpkg, up to the condition code of its parts.
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/support/fuzz.h"
#include "tools/common/failure.h"
#include "tools/common/printable.h"
#include "tools/fwpkg/condition_code.h"
#include "tools/fwpkg/manifest.h"

namespace {

void read(const std::string &path)
{
    try {
        const fwpkg::manifest manifest = fwpkg::read_manifest(path);
        fuzz::require(!manifest.parts.empty() && manifest.parts.size() <= 8, "one to eight parts");
        for (const fwpkg::manifest_part &part : manifest.parts) {
            fuzz::require(part.type >= 0 && part.type <= 255, "a type fits its byte");
            if (part.conditions)
                fwpkg::compile_condition(*part.conditions, part.place);
        }
    } catch (const failure &failure) {
        fuzz::require(is_printable(failure.what()), "a failure is one line of text");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const int file = memfd_create("manifest.toml", MFD_CLOEXEC);
    fuzz::require(file >= 0 && ftruncate(file, 0) == 0 &&
                      pwrite(file, data, size, 0) == static_cast<ssize_t>(size),
                  "the input can be put into a file");
    read("/proc/self/fd/" + std::to_string(file));
    return 0;
}
