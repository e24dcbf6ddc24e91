// SPDX-License-Identifier: GPL-2.0-or-later
//
// A whole FTP dialogue and transfer with a server that the input plays (the script of streams in
// support/world.h: the control connection's bytes, then the data connection's), with one call that
// fails and a callback that may ask to stop.
#include "download/ftp.h"
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
    std::vector<char> url = fuzz::exact_text("ftp://" + input.text());
    world.streams = input.rest();
    const fuzz::run run(&world);
    const int result = fuzz::transfer(ftp_downloader_open, url.data(), geometry, callbacks);
    fuzz::require(result == 0 || result == -1, "a transfer is done or failed");
    fuzz::require(result != 0 || fuzz::run::open_descriptors() == 0 || world.fault != 0,
                  "a transfer that was done leaves no connection");
    return 0;
}
