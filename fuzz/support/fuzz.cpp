// SPDX-License-Identifier: GPL-2.0-or-later
#include "fuzz/support/fuzz.h"

#include <unistd.h>

namespace {

ssize_t drop(void * /*cookie*/, const char * /*bytes*/, size_t size)
{
    return static_cast<ssize_t>(size);
}

} // namespace

// The program's own messages are formatted, so that their arguments are checked, and then dropped.
int LLVMFuzzerInitialize(int * /*count*/, char *** /*arguments*/)
{
    // libFuzzer and the sanitizers keep the real streams: they took them before.
    FILE *nowhere = fopencookie(nullptr, "w", {nullptr, drop, nullptr, nullptr});
    static char buffer[1 << 16];
    setvbuf(nowhere, buffer, _IOFBF, sizeof buffer);
    stdout = nowhere;
    stderr = nowhere;
    return 0;
}

namespace fuzz {

void require(bool holds, const char *what)
{
    if (holds)
        return;
    dprintf(STDERR_FILENO, "does not hold: %s\n", what);
    abort();
}

} // namespace fuzz
