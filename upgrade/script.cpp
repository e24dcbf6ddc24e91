// SPDX-License-Identifier: GPL-2.0-or-later
#include "upgrade/script.h"

#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

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
