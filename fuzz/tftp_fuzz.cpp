// SPDX-License-Identifier: GPL-2.0-or-later
//
// A whole TFTP transfer against a server that the input plays (the script of datagrams in
// support/world.h), with one call that fails.
#include "download/tftp.h"
#include "fuzz/support/fuzz.h"
#include "fuzz/support/transfer.h"
#include "fuzz/support/world.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::input input(data, size);
    const uint8_t geometry = input.byte();
    fuzz::world world;
    world.fault = input.word();
    std::vector<char> url = fuzz::exact_text("tftp://host/" + input.text());
    world.datagrams = input.rest();
    const fuzz::run run(&world);
    const int result = fuzz::transfer(tftp_downloader_open, url.data(), geometry, 1);
    fuzz::require(result >= -1 && result <= 1, "a transfer is done, failed or has no socket");
    fuzz::require(fuzz::run::open_descriptors() == 0, "the socket is closed");
    return 0;
}
