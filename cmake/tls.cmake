# SPDX-License-Identifier: GPL-2.0-or-later
#
# Finds the TLS library, as WOLFSSL_LIBRARY with its headers' folder, and says at once what it lacks.
if(UPGRADE_TLS)
    get_filename_component(tls_folder ${UPGRADE_TLS} ABSOLUTE)
    set(WOLFSSL_LIBRARY ${tls_folder}/libwolfssl.a)
    set(tls_include ${tls_folder}/include)
    include_directories(BEFORE SYSTEM ${tls_include})
else()
    # pkg-config knows folders off the compiler's path. For another machine it is asked only where it
    # was told about that machine; it would name this one's library.
    find_package(PkgConfig QUIET)
    if(PkgConfig_FOUND AND (NOT CMAKE_CROSSCOMPILING OR DEFINED ENV{PKG_CONFIG_LIBDIR}
            OR DEFINED ENV{PKG_CONFIG_SYSROOT_DIR}))
        pkg_check_modules(wolfssl QUIET wolfssl)
    endif()
    set(tls_names wolfssl)
    if(UPGRADE_STATIC OR UPGRADE_SANITIZE)
        # With sanitizers: the simulated platform then takes over the TLS library's own calls as well,
        # which a linker's wrap does not do in a shared library.
        set(tls_names libwolfssl.a)
    endif()
    find_library(WOLFSSL_LIBRARY NAMES ${tls_names}
        HINTS ${wolfssl_LIBRARY_DIRS} ${wolfssl_LIBDIR})
    if(NOT WOLFSSL_LIBRARY)
        message(FATAL_ERROR "The TLS library wolfSSL was not found (Debian: libwolfssl-dev). Name the"
            " folder of one with -DUPGRADE_TLS=FOLDER, or install it where the compiler or pkg-config"
            " looks.")
    endif()
    set(tls_include ${wolfssl_INCLUDE_DIRS})
    if(tls_include)
        include_directories(SYSTEM ${tls_include})
    endif()
endif()

# What the program needs of it is asked of the library's own headers, once for each library.
if(NOT UPGRADE_TLS_CHECKED STREQUAL WOLFSSL_LIBRARY)
    # Compiled, not linked: cross compilers may want flags for that which only the program has.
    set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
    try_compile(tls_usable ${CMAKE_CURRENT_BINARY_DIR}/tls-check
        SOURCES ${CMAKE_CURRENT_LIST_DIR}/tls-check.cpp
        CMAKE_FLAGS "-DINCLUDE_DIRECTORIES=${tls_include}"
        OUTPUT_VARIABLE tls_output)
    unset(CMAKE_TRY_COMPILE_TARGET_TYPE)
    if(NOT tls_usable)
        string(REGEX MATCHALL "the TLS library [^\n]*" tls_lacks "${tls_output}")
        list(REMOVE_DUPLICATES tls_lacks)
        if(NOT tls_lacks)
            set(tls_lacks "the TLS library does not compile:" "${tls_output}")
        endif()
        list(JOIN tls_lacks "\n  " tls_lacks)
        message(FATAL_ERROR "${WOLFSSL_LIBRARY} cannot be used (docs/integration.md):\n  ${tls_lacks}")
    endif()
    set(UPGRADE_TLS_CHECKED ${WOLFSSL_LIBRARY} CACHE INTERNAL "The TLS library that was looked at")
endif()
