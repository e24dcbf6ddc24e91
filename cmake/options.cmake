# SPDX-License-Identifier: GPL-2.0-or-later
# Flags by audience: every target links one of device_options (no exceptions, no RTTI) and
# host_options (host tools and tests).
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
# Static programs have one address, unless the tool chain knows better: Debian's GNU C library for ARM
# has no start code for movable ones.
if(NOT DEFINED UPGRADE_STATIC_FLAGS)
    set(UPGRADE_STATIC_FLAGS -static)
endif()
if(NOT UPGRADE_STATIC)
    set(CMAKE_POSITION_INDEPENDENT_CODE ON)
endif()
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_MINSIZEREL "-Os -DNDEBUG")

include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

add_library(common_options INTERFACE)
target_include_directories(common_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(common_options INTERFACE _FILE_OFFSET_BITS=64)
target_compile_options(common_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wmissing-declarations -Wformat=2
    $<$<BOOL:${UPGRADE_WERROR}>:-Werror> -fstack-protector-strong)
target_link_options(common_options INTERFACE -Wl,-z,relro,-z,now -Wl,-z,noexecstack)
set(sanitized 0)
if(UPGRADE_SANITIZE)
    # All targets but those with the property NOT_SANITIZED.
    set(sanitized "$<NOT:$<BOOL:$<TARGET_PROPERTY:NOT_SANITIZED>>>")
    set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all)
    # For hosts without the checks that double the compiler's work on the libraries' headers and find
    # nothing there that the address sanitizer does not: a null pointer faults, x86 aligns for itself.
    set(host_sanitizers ${sanitizers} -fno-sanitize=null,alignment,vptr,object-size)
    target_compile_options(common_options INTERFACE -fno-omit-frame-pointer)
    target_link_options(common_options INTERFACE "$<${sanitized}:-fsanitize=address,undefined>")
    if(UPGRADE_FUZZ)
        target_compile_options(common_options INTERFACE -fsanitize=fuzzer-no-link)
        target_link_options(common_options INTERFACE -fsanitize=fuzzer-no-link)
    endif()
elseif(CMAKE_BUILD_TYPE MATCHES "^(Release|MinSizeRel)$")
    target_compile_options(common_options INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()

# What `--version` says: the project's version, for the programs that print it.
add_library(version INTERFACE)
target_compile_definitions(version INTERFACE UPGRADE_VERSION="${PROJECT_VERSION}")

add_library(device_options INTERFACE)
target_link_libraries(device_options INTERFACE common_options)
target_compile_options(device_options INTERFACE -fno-exceptions -fno-rtti
    "$<${sanitized}:${sanitizers}>")
if(CMAKE_BUILD_TYPE STREQUAL "MinSizeRel")
    # No tables for unwinding: nothing is ever thrown through, and they are a tenth of the program.
    target_compile_options(device_options INTERFACE
        -ffunction-sections -fdata-sections -fno-asynchronous-unwind-tables -fno-unwind-tables)
    target_link_options(device_options INTERFACE -Wl,--gc-sections)
endif()

add_library(host_options INTERFACE)
target_link_libraries(host_options INTERFACE common_options)
target_compile_options(host_options INTERFACE "$<${sanitized}:${host_sanitizers}>")
