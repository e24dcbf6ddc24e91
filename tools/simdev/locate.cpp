// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/locate.h"

#include <cstring>
#include <initializer_list>
#include <link.h>

#include "tools/common/files.h"

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

/// Whether the dynamic loader of this machine starts a program with this content.
bool is_linked_dynamically(const std::string &content)
{
    if (!content.starts_with(ELFMAG))
        return true;
    // Of the same class and machine: then what follows has this machine's layout.
    const std::string own = read_text("/proc/self/exe");
    ElfW(Ehdr) header = {};
    ElfW(Ehdr) own_header = {};
    own.copy(reinterpret_cast<char *>(&own_header), sizeof own_header);
    content.copy(reinterpret_cast<char *>(&header), sizeof header);
    if (memcmp(header.e_ident, own_header.e_ident, EI_VERSION) != 0 ||
        header.e_machine != own_header.e_machine)
        return false;
    for (size_t index = 0; index < header.e_phnum; index++) {
        ElfW(Phdr) segment = {};
        const size_t position = header.e_phoff + index * sizeof segment;
        if (position >= content.size())
            return false;
        content.copy(reinterpret_cast<char *>(&segment), sizeof segment, position);
        if (segment.p_type == PT_INTERP)
            return true;
    }
    return false;
}

} // namespace

fs::path find_program()
{
#ifdef SIMDEV_SANITIZED
    // The sanitizers' runtime does not bear a preloaded library in front of it.
    return find_beside("upgrade_wrapped", {"upgrade_wrapped"});
#else
    return find_beside("upgrade",
                       {"../../upgrade/upgrade", SIMDEV_LIBRARY_FOLDER "/upgrade", "upgrade"});
#endif
}

fs::path find_preload(const fs::path &program)
{
    const std::string content = read_text(program);
    if (content.find("simdev: the platform is wrapped") != std::string::npos)
        return {};
    if (!is_linked_dynamically(content))
        throw failure(program.string() + ": is not linked dynamically for this machine, so that it "
                                         "cannot run in the simulation");
    return find_beside("libsimdev_preload.so",
                       {"libsimdev_preload.so", SIMDEV_LIBRARY_FOLDER "/libsimdev_preload.so"});
}

} // namespace simdev
