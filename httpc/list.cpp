// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/list.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

void free_node(httpc_var *node)
{
    free(node->name);
    free(node->value);
    free(node);
}

httpc_var *new_node(const char *name, const char *value)
{
    auto *node = static_cast<httpc_var *>(calloc(1, sizeof(httpc_var)));
    if (node == nullptr)
        return nullptr;
    node->name = strdup(name);
    node->value = value == nullptr ? nullptr : strdup(value);
    if (node->name == nullptr || (value != nullptr && node->value == nullptr)) {
        free_node(node);
        return nullptr;
    }
    node->last_same = node;
    return node;
}

/// Where the tree has the first node with this name, or where it would have it (null there). A node
/// at some depth shares that many bits with the names below it, so the walk ends within the bits of
/// `name` and its terminator, however many names there are and whoever chose them.
httpc_var **find(httpc_var **place, const char *name)
{
    for (size_t depth = 0; *place != nullptr && strcmp((*place)->name, name) != 0; depth++) {
        const auto byte = static_cast<uint8_t>(name[depth / CHAR_BIT]);
        place = &(*place)->branch[byte >> depth % CHAR_BIT & 1];
    }
    return place;
}

} // namespace

int _httpc_add_var(httpc_list *list, const char *name, const char *value)
{
    if (name == nullptr)
        return -1;
    httpc_var *node = new_node(name + strspn(name, " \t"), value);
    if (node == nullptr)
        return -1;
    httpc_var **place = find(&list->first, node->name);
    if (*place != nullptr) {
        (*place)->last_same->same_name = node;
        (*place)->last_same = node;
        return 0;
    }
    *place = node;
    if (list->last != nullptr)
        list->last->next = node;
    list->last = node;
    return 0;
}

const char *_httpc_get_var(const httpc_list *list, const char *name)
{
    httpc_var *root = list->first;
    const httpc_var *node = *find(&root, name);
    return node == nullptr ? nullptr : node->value;
}

void _httpc_free_vars(httpc_list *list)
{
    for (httpc_var *node = list->first; node != nullptr;) {
        // The chain of one name goes first, and leads on to the next name: no recursion, since a
        // hostile head makes lists long.
        httpc_var *following = node->next;
        for (httpc_var *same = node; same != nullptr;) {
            httpc_var *freed = same;
            same = same->same_name;
            free_node(freed);
        }
        node = following;
    }
    *list = {};
}

void _httpc_print_vars(const httpc_list *list)
{
    for (const httpc_var *node = list->first; node != nullptr;)
        node = node->next;
}
