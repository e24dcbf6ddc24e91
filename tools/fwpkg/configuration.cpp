// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/configuration.h"

#include <cstdlib>

#include "package/package.h"
#include "platform/syscfg.h"

namespace fwpkg {
namespace {

const device *described;

void clear_requirements()
{
    for (const char *type : part_type_names)
        unsetenv(requirement_variable(type).c_str());
}

} // namespace

device_configuration::device_configuration(const device &description)
{
    described = &description;
    clear_requirements();
    for (const auto &[type, condition] : description.requirements)
        setenv(requirement_variable(type).c_str(), condition.c_str(), 1);
}

device_configuration::~device_configuration()
{
    described = nullptr;
    clear_requirements();
}

} // namespace fwpkg

const char *getsyscfg(const char *key)
{
    if (fwpkg::described == nullptr)
        return nullptr;
    const auto found = fwpkg::described->configuration.find(key);
    return found == fwpkg::described->configuration.end() ? nullptr : found->second.c_str();
}
