// SPDX-License-Identifier: GPL-2.0-or-later
//
// Compiled twice, as face.cpp: behind a preloaded library the real calls are found by name; behind
// the linker's --wrap it has given them names of their own.
#undef _FORTIFY_SOURCE // as in face.cpp: the names themselves are wanted
#undef _FILE_OFFSET_BITS
// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's
#define _FORTIFY_SOURCE 0

#include "tools/simdev/core/real.h"

#include <cstdlib>
#include <dlfcn.h>

sim_real real;

#ifdef SIMDEV_WRAP
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
// In two steps, for a name that is a macro: see real.h.
#define REAL_NAME_AS_IT_IS(name) __real_##name
#define REAL_NAME(name) REAL_NAME_AS_IT_IS(name)
#define REAL(name) extern decltype(name) REAL_NAME(name);
extern "C" {
REAL_CALLS(REAL)
}
// NOLINTEND(bugprone-reserved-identifier)
#undef REAL
#define REAL(name) real.name = REAL_NAME(name);
#else
#define REAL(name) find(&real.name, #name);
#endif

#ifndef SIMDEV_WRAP
namespace {

template<typename Function> void find(Function *function, const char *name)
{
    *function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
    if (*function == nullptr)
        abort();
}

} // namespace
#endif

bool real_find()
{
    if (real.waitpid != nullptr)
        return false;
    REAL_CALLS(REAL)
    return true;
}
