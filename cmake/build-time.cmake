# SPDX-License-Identifier: GPL-2.0-or-later
#
# In builds with sanitizers, which one makes again and again, the standard library's headers that most
# units of the host tools include are read once for all: that is a third of such a unit's time. The
# other builds read them for each, so that a unit shows there that it includes what it uses.
if(TARGET tools_common AND UPGRADE_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_precompile_headers(tools_common PRIVATE <algorithm> <cstring> <filesystem> <fstream>
        <functional> <map> <optional> <span> <sstream> <string> <vector>)
    foreach(target IN ITEMS device doctor_flash doctor_log fwpkg_lib image simdev_lib)
        target_precompile_headers(${target} REUSE_FROM tools_common)
    endforeach()
endif()

# An analyser takes its time for the headers, not for the units: it reads those of a library at once.
# Only it does: units that are compiled together hide what one of them does not include.
if(TARGET tools_common AND UPGRADE_ANALYSIS)
    foreach(target IN ITEMS device doctor_flash doctor_log follow_core follow_lib follow_web fwpkg_lib
            image simdev_lib tools_common)
        if(TARGET ${target})
            set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0
                UNITY_BUILD_CODE_BEFORE_INCLUDE "// NOLINTNEXTLINE(bugprone-suspicious-include)")
        endif()
    endforeach()
endif()
