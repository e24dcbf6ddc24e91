// SPDX-License-Identifier: GPL-2.0-or-later
//
// Stands in front of the compiler's file of this name, which asks for feature macros of the GNU C
// library. What is switched there, musl does not have.
#ifndef _GLIBCXX_OS_DEFINES
#define _GLIBCXX_OS_DEFINES 1

// <iterator> comes with declarations of locales, under the type's old GNU name.
#define __locale_t locale_t

#endif
