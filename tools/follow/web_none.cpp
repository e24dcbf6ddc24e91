// SPDX-License-Identifier: GPL-2.0-or-later
//
// For builds without the page: they have no option that asks for it.
#include "tools/follow/web.h"

namespace follow {

web_server *web_start(const char * /*address*/, int /*port*/, std::string_view /*state*/)
{
    return nullptr;
}

void web_publish(web_server * /*web*/, std::string_view /*state*/) {}

void web_stop(web_server * /*web*/) {}

} // namespace follow
