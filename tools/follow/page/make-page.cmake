# SPDX-License-Identifier: GPL-2.0-or-later
# cmake -D FOLDER=... -D OUTPUT=... -P: makes one file of the page's three, which names the only
# script and style that a browser may use, and page.cpp of it.

# base64_of_hex(HEX VARIABLE): its bytes in base64 (RFC 4648).
function(base64_of_hex hex variable)
    set(letters ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
    string(LENGTH "${hex}" length)
    set(result "")
    foreach(start RANGE 0 ${length} 6)
        string(SUBSTRING "${hex}" ${start} 6 group)
        string(LENGTH "${group}" digits)
        if(digits EQUAL 0)
            break()
        endif()
        string(SUBSTRING "${group}000000" 0 6 padded)
        math(EXPR value "0x${padded}")
        foreach(shift 18 12 6 0)
            math(EXPR index "(${value} >> ${shift}) & 63")
            string(SUBSTRING ${letters} ${index} 1 letter)
            string(APPEND result ${letter})
        endforeach()
        if(digits LESS 6) # 2 digits: two letters of padding, 4: one
            math(EXPR padding "(6 - ${digits}) / 2")
            string(LENGTH "${result}" size)
            math(EXPR size "${size} - ${padding}")
            string(SUBSTRING "${result}" 0 ${size} result)
            string(REPEAT "=" ${padding} equals)
            string(APPEND result "${equals}")
        endif()
    endforeach()
    set(${variable} "${result}" PARENT_SCOPE)
endfunction()

foreach(part css js)
    file(READ ${FOLDER}/follow.${part} text_${part})
    string(SHA256 digest "${text_${part}}")
    base64_of_hex(${digest} hash_${part})
endforeach()
set(PAGE_STYLE "${text_css}")
set(PAGE_SCRIPT "${text_js}")
string(CONCAT PAGE_POLICY "default-src 'none'; connect-src 'self'; img-src data:; "
    "style-src 'sha256-${hash_css}'; script-src 'sha256-${hash_js}'; base-uri 'none'; "
    "form-action 'none'")
configure_file(${FOLDER}/follow.html ${OUTPUT}/follow.html @ONLY)
file(READ ${OUTPUT}/follow.html page)
file(CONFIGURE OUTPUT ${OUTPUT}/page.cpp @ONLY CONTENT [==[
// SPDX-License-Identifier: GPL-2.0-or-later
// Made of tools/follow/page/ by make-page.cmake.
#include "tools/follow/page.h"

namespace follow {

const std::string_view page_text = R"PAGE(@page@)PAGE";

const char *const page_policy = "@PAGE_POLICY@";

} // namespace follow
]==])
