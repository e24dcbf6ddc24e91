// SPDX-License-Identifier: GPL-2.0-or-later
//
// The default provider, for devices whose configuration is a file.
#include "platform/syscfg.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/types.h>

namespace {

// The value when `line` (without its newline) is KEY=value for `key`, split at the first "=", else
// null.
char *value_of(char *line, const char *key)
{
    char *separator = strchr(line, '=');
    if (line[0] == '#' || separator == nullptr)
        return nullptr;
    *separator = '\0';
    return strcmp(line, key) == 0 ? separator + 1 : nullptr;
}

// "Not set" would be the wrong answer: a device that has a key would take packages in clear.
[[noreturn]] void fail_closed()
{
    fprintf(stderr, "cannot read %s: %s\n", SYSCFG_FILE, strerror(errno));
    exit(EXIT_FAILURE);
}

} // namespace

const char *getsyscfg(const char *key)
{
    static char *line; // the answer stays valid until the next call
    static size_t capacity;
    FILE *file = fopen(SYSCFG_FILE, "re");
    if (file == nullptr && errno == ENOENT)
        return nullptr;
    if (file == nullptr)
        fail_closed();
    char *value = nullptr;
    ssize_t length = 0;
    while (value == nullptr && (length = getline(&line, &capacity, file)) >= 0) {
        if (length > 0 && line[length - 1] == '\n')
            line[length - 1] = '\0';
        value = value_of(line, key);
    }
    // At the end of the file there is neither an error nor a reason for one; a line that memory
    // does not hold is no end.
    if (value == nullptr && feof(file) == 0)
        fail_closed();
    fclose(file);
    return value;
}
