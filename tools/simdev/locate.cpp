// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/locate.h"

#include <initializer_list>

#include "tools/common/files.h"
#include "tools/simdev/failure.h"

namespace simdev {

namespace fs = std::filesystem;

namespace {

fs::path find_beside(const char *what, std::initializer_list<const char *> places)
{
    const fs::path own = fs::read_symlink("/proc/self/exe").parent_path();
    for (const char *place : places)
        if (fs::exists(own / place))
            return fs::weakly_canonical(own / place);
    throw failure(std::string(what) + " is not beside " + own.string());
}

} // namespace

fs::path find_program()
{
#ifdef SIMDEV_SANITIZED
    // The sanitizers' runtime does not bear a preloaded library in front of it.
    return find_beside("upgrade_wrapped", {"upgrade_wrapped"});
#else
    return find_beside("upgrade", {"../../upgrade/upgrade", "../sbin/upgrade", "upgrade"});
#endif
}

fs::path find_preload()
{
    return find_beside("libsimdev_preload.so",
                       {"libsimdev_preload.so", SIMDEV_LIBRARY_FOLDER "/libsimdev_preload.so"});
}

bool is_wrapped(const fs::path &program)
{
    return read_whole_file(program).find("simdev: the platform is wrapped") != std::string::npos;
}

} // namespace simdev
