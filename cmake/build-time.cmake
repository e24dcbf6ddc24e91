# SPDX-License-Identifier: GPL-2.0-or-later
#
# In builds with sanitizers, which one makes again and again, a compiler's time for the host tools goes into
# the standard library: its headers are read once for all, and what units use of it is compiled once for
# a few of them. The other builds take each unit alone, so that one shows there that it includes what it uses.
if(TARGET tools_common AND UPGRADE_SANITIZE)
    target_precompile_headers(tools_common PRIVATE <algorithm> <cstring> <filesystem> <fstream>
        <functional> <map> <optional> <span> <sstream> <string> <vector>)
    foreach(target IN ITEMS device doctor_flash doctor_log fuzz_corpus_main fuzz_support
            fwpkg_lib image simdev_lib)
        if(TARGET ${target})
            target_precompile_headers(${target} REUSE_FROM tools_common)
        endif()
    endforeach()
    foreach(target IN ITEMS doctor_flash doctor_log follow_core follow_lib fwpkg_lib
            simdev_core simdev_lib simdev_preload)
        set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8
            UNITY_BUILD_CODE_BEFORE_INCLUDE "// NOLINTNEXTLINE(bugprone-suspicious-include)")
    endforeach()
endif()
