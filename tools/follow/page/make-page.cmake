# SPDX-License-Identifier: GPL-2.0-or-later
# cmake -D FOLDER=... -D OUTPUT=... -P: makes one file of the page's three, which names the only
# script and style that a browser may use, and page.cpp of it.

foreach(part css js)
    file(READ ${FOLDER}/follow.${part} text_${part})
    string(SHA256 digest "${text_${part}}")
    string(TOUPPER ${digest} digest) # as basenc has it (RFC 4648)
    execute_process(
        COMMAND ${CMAKE_COMMAND} -E echo_append ${digest}
        COMMAND basenc --base16 --decode
        COMMAND basenc --base64
        OUTPUT_VARIABLE hash_${part} OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
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
#include "tools/follow/web.h"

namespace follow {

const std::string_view page_text = R"PAGE(@page@)PAGE";

const char *const page_policy = "@PAGE_POLICY@";

} // namespace follow
]==])
