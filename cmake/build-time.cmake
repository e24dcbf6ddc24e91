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
