// SPDX-License-Identifier: GPL-2.0-or-later
//
// A whole download over HTTP or HTTPS from servers that the input plays (the script of streams in
// support/world.h, one connection for the first request and for each redirect), with one call that
// fails and a callback that may ask to stop.
#include "download/http.h"
#include "fuzz/support/fuzz.h"
#include "fuzz/support/transfer.h"
#include "fuzz/support/world.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::input input(data, size);
    const uint8_t geometry = input.byte();
    const int callbacks = input.byte() + 1;
    fuzz::world world;
    world.fault = input.word();
    std::vector<char> url = fuzz::exact_text(input.text());
    world.streams = input.rest();
    const fuzz::run run(&world);
    const int result = fuzz::transfer(http_downloader_open, url.data(), geometry, callbacks);
    fuzz::require(result >= -1 && result <= 1, "a transfer is done, failed or stopped");
    fuzz::require(fuzz::run::open_descriptors() <= 1 || world.fault != 0,
                  "a redirect closes the connection that it leaves");
    return 0;
}
