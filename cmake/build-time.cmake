# SPDX-License-Identifier: GPL-2.0-or-later
#
# In builds with sanitizers, which one makes again and again, the host tools' units are compiled
# together: each then has the JSON and command-line libraries' headers, and what they instantiate,
# once for a tool and not once for a unit. A unit whose private names clash with another's gets
# better names, or the property SKIP_UNITY_BUILD_INCLUSION. The other builds compile each unit alone, so
# that it includes what it uses.
if(UPGRADE_SANITIZE AND NOT UPGRADE_FUZZ)
    foreach(target IN ITEMS tools_common fwpkg_lib fwpkg simdev image follow_lib)
        if(TARGET ${target})
            set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
        endif()
    endforeach()
endif()
