// SPDX-License-Identifier: GPL-2.0-or-later
//
// The name/value lists of the HTTP client: request variables, and headers.
//
// A list is a chain of distinct names in the order in which they came. A repeated name hangs on the
// chain of its first node, where neither look-up nor sending sees it: servers repeat headers. Names
// are compared byte by byte. A name is found, and a pair appended, in a time that does not grow
// with the list, since a server may fill a head with tens of thousands of pairs.
#pragma once

struct httpc_var {
    char *name;           ///< own copy, without leading spaces and tabs
    char *value;          ///< own copy, or null: stored, never sent
    httpc_var *same_name; ///< next node with this name
    httpc_var *next;      ///< next node with another name
    httpc_var *last_same; ///< in a first node: the end of its chain of one name
    httpc_var *branch[2]; ///< in a first node: names that differ, by their bit at this depth
};

/// An empty list is all null. Its first node is also the root of the tree by which names are found.
struct httpc_list {
    httpc_var *first;
    httpc_var *last; ///< the last distinct name
};

// NOLINTBEGIN(bugprone-reserved-identifier): the library's own names
// begin with an underscore.

/// Adds copies of `name`, without its leading spaces and tabs, and of `value`, which may be null,
/// behind what `list` holds. 0; -1 for a null name or without memory, with the list unchanged.
int _httpc_add_var(httpc_list *list, const char *name, const char *value);

/// The value of the first node with exactly this name, null when there is none. It belongs to the
/// list.
const char *_httpc_get_var(const httpc_list *list, const char *name);

/// Frees all nodes and leaves the list empty.
void _httpc_free_vars(httpc_list *list);

/// Walks the list and prints nothing: the place for a trace.
void _httpc_print_vars(const httpc_list *list);

// NOLINTEND(bugprone-reserved-identifier)
