// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/http.h"

#include <gtest/gtest.h>
#include <numeric>
#include <vector>

#include "download/downloaders.h"
#include "tests/played_network.h"

using std::string;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

struct outcome {
    int result;
    int total;
    int blocks;             ///< committed
    std::vector<int> calls; ///< of the callback, with its counts
};

int stop_at; ///< the call that asks to stop

int note_call(void *calls, int count)
{
    auto *noted = static_cast<std::vector<int> *>(calls);
    noted->push_back(count);
    return static_cast<int>(noted->size()) == stop_at ? 0 : 1;
}

/// One download from the peers that are there, into a buffer with room for five blocks; the
/// package's bytes are checked against `body`.
outcome download_from_peers(const string &body)
{
    static auto *kept = new std::vector<downloader *>; // as in the program: none is released
    char url[] = "http://127.0.0.1/p";
    downloader *http = kept->emplace_back(downloader_open(url));
    EXPECT_EQ(http->ops->length(http), 0);
    iobuf *buffer = iobuf_create(4096, 5);
    outcome got = {};
    got.result = http->ops->download(http, buffer, note_call, &got.calls);
    got.total = buffer->total;
    got.blocks = buffer->current;
    for (int i = 0; got.result == 0 && i < got.total; i++)
        EXPECT_EQ(static_cast<char>(buffer->blocks[i / 4096][i % 4096]),
                  body[static_cast<size_t>(i)]);
    free(buffer);
    return got;
}

/// `head` comes with the first `leftover` bytes of the body, padded so that exactly they are left
/// over in the client; then `sizes` one by one, then `end`. The first `resets` connections fail at
/// their first write.
outcome download(const string &head, size_t leftover, const std::vector<size_t> &sizes,
                 const string &end = "", size_t resets = 0)
{
    string body(5 * 4096 + 10, '\0');
    for (size_t i = 0; i < body.size(); i++)
        body[i] = static_cast<char>(' ' + i * 7 / 5 % 90); // none of a script's control bytes
    // Two refills of 1025 bytes; carriage returns fill up, since a head ignores them.
    string script = head + string(2 * 1025 - leftover - head.size() - 1, '\r') + "\n" +
                    body.substr(0, leftover);
    size_t at = leftover;
    for (const size_t size : sizes) {
        script += PEER_PAUSE + body.substr(at, size);
        at += size;
    }
    played = {};
    for (size_t turn = 0; turn < resets; turn++)
        played.peers.push_back({.port = 80, .script = "", .resets = true});
    played.peers.push_back({.port = 80, .script = script + end});
    return download_from_peers(body);
}

string ok(int length)
{
    return "HTTP/1.0 200 OK\r\nContent-Length: " + std::to_string(length) + "\r\n";
}

} // namespace

TEST(HttpDownload, StoresPackagesOfEverySizeHoweverTheyCome)
{
    const struct {
        const char *what;
        int length;
        size_t leftover;
        std::vector<size_t> sizes;
        string end;
        int result;
        std::vector<int> calls;
    } rows[] = {
        // clang-format off
        {"a byte behind full blocks", 8193, 0, {4096, 4096, 1}, "", 0, {4096, 4096, 1}},
        {"more than announced", 4097, 0, {4100}, "", 0, {4096, 1}},
        {"well before the end", 12289, 0, {9, 8192, 4088}, "", 0, {9, 4087, 4096, 9, 4087, 1}},
        {"left over, all", 1000, 1000, {}, "", 0, {1000}},
        {"left over, all but a byte", 1001, 1000, {1}, "", 0, {1000, 1}},
        {"left over, some", 5119, 1024, {4095}, "", 0, {1024, 3072, 1023}},
        {"last block in pieces", 8292, 0, {4096, 4096, 40, 60}, "", 0, {4096, 4096, 40, 60}},
        {"byte by byte", 4101, 0, {4096, 1, 1, 1, 1, 1}, "", 0, {4096, 1, 1, 1, 1, 1}},
        {"full in pieces", 8192, 0, {4096, 1, 4000, 95}, "", 0, {4096, 1, 4000, 95}},
        {"a piece into the last 4096 bytes", 8193, 0, {9, 4087, 100, 3997}, "", 0, {9, 4087, 100, 3996, 1}},
        {"the end missing", 8193, 0, {4096, 1000}, "", -1, {4096, 1000, 0}},
        {"reset", 8193, 0, {4096, 1000}, PEER_FAILS, -1, {4096, 1000}},
        {"silence", 8193, 0, {4096, 1000}, PEER_SILENCE, -1, {4096, 1000, 0}},
        {"no body", 8193, 0, {}, PEER_SILENCE, -1, {0}},
        {"nothing announced", 0, 0, {100}, "", 0, {}},
        {"less than nothing announced", -5, 0, {100}, "", 0, {}},
        {"the buffer to its last byte", 20480, 0, {20480}, "", 0, {4096, 4096, 4096, 4096, 4096}},
        {"one byte more", 20481, 0, {20481}, "", -1, {4096, 4096, 4096, 4096, 4096}},
    };
    // clang-format on
    for (const auto &row : rows) {
        const outcome got = download(ok(row.length), row.leftover, row.sizes, row.end);
        EXPECT_EQ(got.result, row.result) << row.what;
        EXPECT_EQ(got.calls, row.calls) << row.what;
        EXPECT_EQ(got.total, std::accumulate(row.calls.begin(), row.calls.end(), 0)) << row.what;
        const int full = row.result == 0 ? (got.total + 4095) / 4096 : got.total / 4096;
        EXPECT_EQ(got.blocks, full) << row.what;
    }
}

TEST(HttpDownload, EndsWithTheCallbackAndWithAnotherStatus)
{
    stop_at = 2;
    const outcome got = download(ok(12288), 0, {4096, 4096, 4096});
    stop_at = 0;
    EXPECT_EQ(got.result, 1);
    EXPECT_EQ(got.total, 8192);
    EXPECT_EQ(got.blocks, 1); // the block that the callback stopped is not committed
    for (const char *status : {"404 No", "201 Made", "206 Partial", "304 Same"}) {
        const outcome refused =
            download("HTTP/1.0 " + string(status) + "\r\nContent-Length: 9\r\n", 9, {});
        EXPECT_EQ(refused.result, -1) << status;
        EXPECT_EQ(refused.total, 0) << status;
    }
}

TEST(HttpDownload, SendsItsRequestSixTimesUnlessItGoesOut)
{
    EXPECT_EQ(download(ok(4097), 0, {4097}, "", 5).result, 0);
    EXPECT_EQ(played.peers[5].received,
              "GET /p HTTP/1.0\r\nAccept-Language: zh-cn\r\nContent-type: text/html\r\n"
              "Content-Length: 0\r\nHost: 127.0.0.1\r\n\r\n");
    EXPECT_EQ(download(ok(4097), 0, {4097}, "", 6).result, -1);
    EXPECT_EQ(played.peers[6].address, "");
    played = {}; // nobody listens
    EXPECT_EQ(download_from_peers("").result, -1);
    EXPECT_EQ(played.slept_seconds, 6U);
}

TEST(HttpDownload, RefusesUrlsThatItCannotSplit)
{
    string bad = "http://" + string(121, 'h');
    CaptureStderr();
    EXPECT_EQ(http_downloader_open(bad.data()), nullptr);
    EXPECT_NE(GetCapturedStderr().find("fget: invalid url: " + bad + "\n"), string::npos);
    char no_port[] = "ftp://h/p"; // as host and path: host "ftp", port 0
    EXPECT_EQ(http_downloader_open(no_port), nullptr);
}
