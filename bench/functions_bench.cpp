// SPDX-License-Identifier: GPL-2.0-or-later
//
// The functions whose time grows with the package, on the largest package there can be, each beside
// a well-known implementation of the same.
#include <benchmark/benchmark.h>
#include <cstring>
#include <vector>

#include "bench/references.h"
#include "download/iobuf.h"
#include "flash/crc32.h"
#include "package/decrypt.h"
#include "package/md5.h"
#include "package/package.h"
#include "package/validate.h"

namespace {

constexpr int block_size = package_block_size;
constexpr char key[] = "a device's own key";

uint8_t byte_at(size_t position)
{
    return static_cast<uint8_t>(position * 167 + position / 251);
}

// The blocks as a download leaves them: sealed.
iobuf *filled_buffer()
{
    iobuf *buffer = iobuf_create(block_size, package_block_count);
    for (size_t start = 0; start < package_capacity; start += block_size) {
        uint8_t *block = iobuf_request(buffer);
        for (size_t i = 0; i < block_size; i++)
            block[i] = byte_at(start + i);
        iobuf_commit(buffer);
    }
    buffer->total = static_cast<int>(package_capacity);
    return buffer;
}

std::vector<uint8_t> filled_bytes()
{
    std::vector<uint8_t> bytes(package_capacity);
    for (size_t i = 0; i < bytes.size(); i++)
        bytes[i] = byte_at(i);
    return bytes;
}

void report_bytes(benchmark::State &state)
{
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(package_capacity));
}

void decipher_and_digest(benchmark::State &state)
{
    iobuf *buffer = filled_buffer();
    package record = {};
    record.size = static_cast<uint32_t>(package_capacity);
    uint8_t digest[md5_digest_size];
    for ([[maybe_unused]] auto _ : state) {
        if (cipher_package(&record, buffer, key) != 0)
            state.SkipWithError("the package was not deciphered");
        digest_package(&record, buffer, digest);
        benchmark::DoNotOptimize(digest);
    }
    report_bytes(state);
}

void reference_decipher_and_digest(benchmark::State &state)
{
    std::vector<uint8_t> bytes = filled_bytes();
    uint8_t digest[md5_digest_size];
    for ([[maybe_unused]] auto _ : state) {
        reference::decipher_and_digest(bytes, key, digest);
        benchmark::DoNotOptimize(digest);
    }
    report_bytes(state);
}

// Block by block, as the flash writer takes it.
uint32_t crc_of_blocks(const std::vector<uint8_t> &bytes)
{
    uint32_t sum = 0;
    for (size_t start = 0; start < package_capacity; start += block_size)
        sum = crc32(sum, bytes.data() + start, block_size);
    return sum;
}

void crc(benchmark::State &state)
{
    const std::vector<uint8_t> bytes = filled_bytes();
    if (crc_of_blocks(bytes) != reference::crc32(bytes))
        state.SkipWithError("the sums differ");
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(crc_of_blocks(bytes));
    report_bytes(state);
}

void reference_crc(benchmark::State &state)
{
    const std::vector<uint8_t> bytes = filled_bytes();
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(reference::crc32(bytes));
    report_bytes(state);
}

} // namespace

BENCHMARK(decipher_and_digest)->Unit(benchmark::kMillisecond);
BENCHMARK(reference_decipher_and_digest)->Unit(benchmark::kMillisecond);
BENCHMARK(crc)->Unit(benchmark::kMillisecond);
BENCHMARK(reference_crc)->Unit(benchmark::kMillisecond);
