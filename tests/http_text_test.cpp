// SPDX-License-Identifier: GPL-2.0-or-later
//
// The texts of the HTTP client: URLs, and what other users of the library have, forms and headers.
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "httpc/extra_texts.h"
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

TEST(HttpTexts, AreEscapedAndReadWithinTheirLimits)
{
    char out[32] = {};
    EXPECT_EQ(_encode_string("a b/c~\xE9", out, 14), 13);
    EXPECT_STREQ(out, "a+b%2Fc%7E%E9");
    char pairs[12] = {};
    EXPECT_EQ(_encode_contents("n", "v", pairs, sizeof(pairs)), 3);
    EXPECT_EQ(_encode_contents("m", "12345678", pairs, sizeof(pairs)), -1);
    EXPECT_EQ(_encode_contents("m", "/12", pairs, sizeof(pairs)), 11);
    EXPECT_STREQ(pairs, "n=v&m=%2F12");
    _httpc_parse_content(out, "a+b%41c%4Fd%4/%4");
    EXPECT_EQ(memcmp(out, "a b\1c\0d\0%4", 11), 0);
    httpc_client client = {};
    const string name(40, 'n'), value(70, 'v');
    _httpc_parse_headers(&client, ("A: 1234\r\nB: x\n\n" + name + ": " + value + "\r\nC").c_str());
    EXPECT_STREQ(httpcGetHeader(&client, "B"), "x234"); // the kept tail
    EXPECT_EQ(httpcGetHeader(&client, string(31, 'n').c_str()), string(63, 'v'));
    httpcFreeHeaders(&client);
}

TEST(HttpList, FindsTheFirstValueOfANameInALongHead)
{
    httpc_list list = {};
    constexpr int count = 100'000; // the square of it would take hours
    for (int i = 0; i < count; i++) {
        const string name = std::to_string(i * 7 % count);
        _httpc_add_var(&list, name.c_str(), name.c_str());
        _httpc_add_var(&list, "0", "repeated");
    }
    for (int i = 0; i < count; i++)
        EXPECT_EQ(_httpc_get_var(&list, std::to_string(i).c_str()), std::to_string(i));
    _httpc_free_vars(&list);
}
