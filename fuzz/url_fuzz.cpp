// SPDX-License-Identifier: GPL-2.0-or-later
//
// A URL from the command line: the choice of the protocol and the splitting by each of them.
#include "download/downloaders.h"
#include "fuzz/support/fuzz.h"
#include "fuzz/support/transfer.h"
#include "fuzz/support/world.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::input input(data, size);
    fuzz::world world;
    world.fault = input.byte();
    std::vector<char> url = fuzz::exact_text(input.text());
    const fuzz::run run(&world);
    // Nobody answers: only the URL and the request that is made from it count.
    fuzz::transfer(downloader_open, url.data(), 1, 1);
    return 0;
}
