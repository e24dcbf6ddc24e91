# SPDX-License-Identifier: GPL-2.0-or-later
# cpack runs it when all components are installed in folders of their own; see packages.cmake.in.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} name)
    set(static)
    if(CPACK_UPGRADE_STATIC)
        set(static static)
    endif()
    execute_process(
        COMMAND ${CPACK_UPGRADE_FINISH} ${CPACK_DEBIAN_${name}_PACKAGE_NAME}
            ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component} ${CPACK_PACKAGE_VERSION}
            ${CPACK_PACKAGE_CONTACT} $ENV{SOURCE_DATE_EPOCH} ${static}
        COMMAND_ERROR_IS_FATAL ANY)
endforeach()
