// SPDX-License-Identifier: GPL-2.0-or-later
//
// The default provider, for devices whose configuration is a file.
#include "platform/syscfg.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/types.h>

namespace {

// The value when `line` (without its newline) is KEY=value for `key`, else null.
char *value_of(char *line, const char *key)
{
    const size_t length = strlen(key);
    if (line[0] == '#' || strncmp(line, key, length) != 0 || line[length] != '=')
        return nullptr;
    return line + length + 1;
}

} // namespace

const char *getsyscfg(const char *key)
{
    static char *line; // the answer stays valid until the next call
    static size_t capacity;
    FILE *file = fopen(SYSCFG_FILE, "re");
    if (file == nullptr)
        return nullptr;
    char *value = nullptr;
    ssize_t length = 0;
    while (value == nullptr && (length = getline(&line, &capacity, file)) >= 0) {
        if (length > 0 && line[length - 1] == '\n')
            line[length - 1] = '\0';
        value = value_of(line, key);
    }
    fclose(file);
    return value;
}
