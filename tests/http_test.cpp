// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/http.h"

#include <deque>
#include <gtest/gtest.h>
#include <numeric>
#include <vector>

#include "fuzz/support/world.h"

using std::string;
using counts = std::vector<int>;

namespace {

struct response {
    string status;
    int length;
    size_t leftover;           ///< bytes of the body that are left over in the client with the head
    std::vector<size_t> sizes; ///< of what follows, one by one
    string end = "";
};

struct outcome {
    int result;
    int blocks;         ///< committed
    counts calls = {};  ///< of the callback
    size_t stop_at = 0; ///< the call that asks to stop
    std::deque<fuzz::connection> connections = {};
};

int note_call(void *outcome_, int count)
{
    auto *got = static_cast<outcome *>(outcome_);
    got->calls.push_back(count);
    return got->calls.size() == got->stop_at ? 0 : 1;
}

/// One download, into a buffer with room for five blocks, whose bytes are checked. The first
/// `resets` connections fail at their first write.
outcome download(const response &sent, size_t stop_at = 0, size_t resets = 0)
{
    string body(5 * 4096 + 10, '\0');
    for (size_t i = 0; i < body.size(); i++)
        body[i] = static_cast<char>(' ' + i * 7 / 5 % 90); // none of a script's control bytes
    string text =
        "HTTP/1.0 " + sent.status + "\r\nContent-Length: " + std::to_string(sent.length) + "\r\n";
    // Two refills of 1025 bytes; carriage returns fill up, since a head ignores them.
    text += string(2 * 1025 - sent.leftover - text.size() - 1, '\r') + "\n" +
            body.substr(0, sent.leftover);
    size_t at = sent.leftover;
    for (const size_t size : sent.sizes) {
        text += PEER_PAUSE + body.substr(at, size);
        at += size;
    }
    text += sent.end;
    for (size_t i = 0; i < resets; i++)
        text.insert(0, PEER_RESETS PEER_CLOSE);
    fuzz::world world = {.script = {text.begin(), text.end()}, .refuses = true};
    const fuzz::run run(&world);
    char url[] = "http://127.0.0.1/p";
    downloader *http = http_downloader_open(url);
    iobuf *buffer = iobuf_create(4096, 5);
    outcome got = {.result = 0, .blocks = 0, .stop_at = stop_at};
    got.result = http->ops->download(http, buffer, note_call, &got);
    got.blocks = buffer->current;
    EXPECT_EQ(buffer->total, std::accumulate(got.calls.begin(), got.calls.end(), 0));
    for (int i = 0; got.result == 0 && i < buffer->total; i++)
        EXPECT_EQ(static_cast<char>(buffer->blocks[i / 4096][i % 4096]),
                  body[static_cast<size_t>(i)]);
    got.connections = world.connections;
    return got;
}

} // namespace

TEST(HttpDownload, StoresPackagesOfEverySizeHoweverTheyCome)
{
    const struct {
        const char *what;
        response sent;
        outcome wanted;
    } rows[] = {
        // clang-format off
        {"a byte behind full blocks", {"200 OK", 8193, 0, {4096, 4096, 1}}, {0, 3, {4096, 4096, 1}}},
        {"more than announced", {"200 OK", 4097, 0, {4100}}, {0, 2, {4096, 1}}},
        {"well before the end", {"200 OK", 12289, 0, {9, 8192, 4088}}, {0, 4, {9, 4087, 4096, 9, 4087, 1}}},
        {"left over, all", {"200 OK", 1000, 1000, {}}, {0, 1, {1000}}},
        {"left over, all but a byte", {"200 OK", 1001, 1000, {1}}, {0, 1, {1000, 1}}},
        {"left over, some", {"200 OK", 5119, 1024, {4095}}, {0, 2, {1024, 3072, 1023}}},
        {"last block in pieces", {"200 OK", 8292, 0, {4096, 4096, 40, 60}}, {0, 3, {4096, 4096, 40, 60}}},
        {"byte by byte", {"200 OK", 4101, 0, {4096, 1, 1, 1, 1, 1}}, {0, 2, {4096, 1, 1, 1, 1, 1}}},
        {"full in pieces", {"200 OK", 8192, 0, {4096, 1, 4000, 95}}, {0, 2, {4096, 1, 4000, 95}}},
        {"a piece into the last 4096 bytes", {"200 OK", 8193, 0, {9, 4087, 100, 3997}}, {0, 3, {9, 4087, 100, 3996, 1}}},
        {"the end missing", {"200 OK", 8193, 0, {4096, 1000}}, {-1, 1, {4096, 1000, 0}}},
        {"reset", {"200 OK", 8193, 0, {4096, 1000}, PEER_FAILS}, {-1, 1, {4096, 1000}}},
        {"silence", {"200 OK", 8193, 0, {4096, 1000}, PEER_SILENCE}, {-1, 1, {4096, 1000, 0}}},
        {"nothing announced", {"200 OK", 0, 0, {100}}, {0, 0, {}}},
        {"less than nothing announced", {"200 OK", -5, 0, {100}}, {0, 0, {}}},
        {"the buffer to its last byte", {"200 OK", 20480, 0, {20480}}, {0, 5, {4096, 4096, 4096, 4096, 4096}}},
        {"one byte more", {"200 OK", 20481, 0, {20481}}, {-1, 5, {4096, 4096, 4096, 4096, 4096}}},
        // The block that the callback stops is not committed.
        {"stopped", {"200 OK", 12288, 0, {4096, 4096, 4096}}, {1, 1, {4096, 4096}, 2}},
        {"another status", {"206 Partial", 9, 9, {}}, {-1, 0, {}}},
        {"not changed, without a place", {"304 Same", 9, 9, {}}, {-1, 0, {}}},
        // clang-format on
    };
    for (const auto &row : rows) {
        const outcome got = download(row.sent, row.wanted.stop_at);
        EXPECT_EQ(got.result, row.wanted.result) << row.what;
        EXPECT_EQ(got.calls, row.wanted.calls) << row.what;
        EXPECT_EQ(got.blocks, row.wanted.blocks) << row.what;
    }
}

TEST(HttpDownload, SendsItsRequestSixTimesUnlessItGoesOut)
{
    const response whole = {"200 OK", 4097, 0, {4097}};
    const outcome sixth = download(whole, 0, 5);
    EXPECT_EQ(sixth.result, 0);
    EXPECT_EQ(sixth.connections[5].address, "127.0.0.1:80");
    EXPECT_EQ(sixth.connections[5].received,
              "GET /p HTTP/1.0\r\nAccept-Language: zh-cn\r\nContent-type: text/html\r\n"
              "Content-Length: 0\r\nHost: 127.0.0.1\r\n\r\n");
    const outcome seventh = download(whole, 0, 6);
    EXPECT_EQ(seventh.result, -1);
    EXPECT_EQ(seventh.connections.size(), 6U);
}
