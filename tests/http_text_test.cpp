// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/http-priv.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "httpc/cprotocol.h"
#include "httpc/httpc.h"
#include "httpc/httpc_client.h"

using std::string;

TEST(HttpUrl, SplitsAsTheDevicesDo)
{
    const struct {
        string url, parts; ///< "-" is a field that stays as it was
    } rows[] = {
        {"http://h/a/b", "HTTP h 80 /a/b"},
        {"https://h/a", "HTTPS h 443 /a"},
        {"http://h:8080", "HTTP h 8080 -"},
        {"https://h:70000/p", "HTTPS h 4464 /p"}, // 70000 - 65536
        {"http://h:99999999999999999999/p", "HTTP h 65535 /p"},
        {"http://h/x:y", "HTTP h/x 0 -"},
        {"HTTP://h/p", "- HTTP 0 //h/p"},
        {"/upgrade/flash.pkg", "- 127.0.0.1 80 /upgrade/flash.pkg"},
        {"", "-  80 /"},
        {"http://" + string(120, 'h'), "HTTP " + string(120, 'h') + " 80 /"},
    };
    for (const auto &row : rows) {
        char scheme[8] = "-", host[128] = "-", path[128] = "-";
        uint16_t port = 7;
        EXPECT_EQ(httpcParseURL(row.url.c_str(), scheme, host, &port, path), 0) << row.url;
        EXPECT_EQ(string(scheme) + " " + host + " " + std::to_string(port) + " " + path, row.parts);
    }
    EXPECT_EQ(httpcParseURL(nullptr, nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(httpcParseURL(string(128, 'h').c_str(), nullptr, nullptr, nullptr, nullptr), -1);
}

TEST(HttpEscape, EscapesWithinItsLimits)
{
    const struct {
        const char *source;
        int size, result;
        const char *text;
    } rows[] = {
        {"a b/c", 32, 7, "a+b%2Fc"},
        {"~\xE9", 32, 6, "%7E%E9"},
        {"", 1, 0, ""},
        {"ab", 3, 2, "ab"},
        {"abc", 3, -1, "ab"},
        {"/", 4, 3, "%2F"},
        {"/", 3, -1, ""},
        {"a", INT32_MIN, -1, ""},
    };
    for (const auto &row : rows) {
        char out[32] = {};
        EXPECT_EQ(_encode_string(row.source, out, row.size), row.result) << row.source;
        EXPECT_STREQ(out, row.text);
    }
    char out[32] = {};
    EXPECT_EQ(_encode_content("abc", "def", out, 4), 7); // the value has the name's limit
    EXPECT_STREQ(out, "abc=def");
    char pairs[12] = {};
    EXPECT_EQ(_encode_contents("n", "v", pairs, sizeof(pairs)), 3);
    EXPECT_EQ(_encode_contents("m", "12345678", pairs, sizeof(pairs)), -1);
    EXPECT_EQ(_encode_contents("m", "/12", pairs, sizeof(pairs)), 11);
    EXPECT_STREQ(pairs, "n=v&m=%2F12");
}

TEST(HttpEscape, DecodesFormsAndHeaderBlocks)
{
    char out[32];
    _httpc_parse_content(out, "a+b%41c%4Fd%4");
    EXPECT_EQ(memcmp(out, "a b\1c\0d%4", 10), 0);
    httpc_client client = {};
    _httpc_parse_headers(&client, (" A: 123456\r\nB: xy\n\n" + string(40, 'n') + ": " +
                                   string(70, 'v') + "\r\nC:\r\nleft over")
                                      .c_str());
    EXPECT_STREQ(httpcGetHeader(&client, "A"), "123456");
    EXPECT_STREQ(httpcGetHeader(&client, "B"), "xy3456"); // the kept tail
    EXPECT_EQ(httpcGetHeader(&client, string(31, 'n').c_str()), string(63, 'v'));
    EXPECT_NE(httpcGetHeader(&client, "C"), nullptr);
    httpcFreeHeaders(&client);
}
