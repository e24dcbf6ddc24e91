// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/descriptors.h"

#include <array>

namespace {

std::array<slot, 1024> slots; // descriptors above are not followed

} // namespace

void descriptors_start()
{
    slots = {};
}

slot *followed(int fd)
{
    if (fd < 0 || fd >= static_cast<int>(slots.size()))
        return nullptr;
    slot *found = &slots[static_cast<size_t>(fd)];
    return found->kind == slot_none ? nullptr : found;
}

slot *follow(int fd, slot_kind kind)
{
    if (fd < 0 || fd >= static_cast<int>(slots.size()))
        return nullptr;
    slot *found = &slots[static_cast<size_t>(fd)];
    *found = {};
    found->kind = kind;
    return found;
}
