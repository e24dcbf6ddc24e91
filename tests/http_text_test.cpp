// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/http-priv.h"

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
    char out[32] = {};
    EXPECT_EQ(_encode_string("a b/c~\xE9", out, 14), 13);
    EXPECT_STREQ(out, "a+b%2Fc%7E%E9");
    EXPECT_EQ(_encode_string("abc", out, 3), -1);
    EXPECT_EQ(_encode_string("/", out, 3), -1);
    EXPECT_EQ(_encode_content("abc", "v", out, 3), -1);
    EXPECT_EQ(_encode_content("n", "abc", out, 3), -1);
    char pairs[12] = {};
    EXPECT_EQ(_encode_contents("n", "v", pairs, sizeof(pairs)), 3);
    EXPECT_EQ(_encode_contents("m", "12345678", pairs, sizeof(pairs)), -1);
    EXPECT_EQ(_encode_contents("m", "/12", pairs, sizeof(pairs)), 11);
    EXPECT_STREQ(pairs, "n=v&m=%2F12");
}

TEST(HttpEscape, DecodesFormsAndHeaderBlocks)
{
    char out[32];
    _httpc_parse_content(out, "a+b%41c%4Fd%4/%4");
    EXPECT_EQ(memcmp(out, "a b\1c\0d\0%4", 11), 0);
    httpc_client client = {};
    _httpc_parse_headers(&client, (" A: 123456\r\nB: xy\n\n" + string(40, 'n') + ": " +
                                   string(70, 'v') + "\r\nC:\r\nleft over")
                                      .c_str());
    EXPECT_STREQ(httpcGetHeader(&client, "A"), "123456");
    EXPECT_STREQ(httpcGetHeader(&client, "B"), "xy3456"); // the kept tail
    EXPECT_EQ(httpcGetHeader(&client, string(31, 'n').c_str()), string(63, 'v'));
    EXPECT_NE(httpcGetHeader(&client, "C"), nullptr);
    // Copies of the exact size, so that the sanitizer sees a read beyond the end.
    for (const char *cut : {"", "D:", "E: 1\r", "F: 1\r\n", "%", "%4", "%41"}) {
        char *exact = strdup(cut);
        _httpc_parse_headers(&client, exact);
        _httpc_parse_content(out, exact);
        free(exact);
    }
    EXPECT_STREQ(httpcGetHeader(&client, "E"), "1");
    httpcFreeHeaders(&client);
}

TEST(HttpList, KeepsTheOrderAndTheFirstValueOfANameInALongHead)
{
    httpc_list list = {};
    EXPECT_EQ(_httpc_add_var(&list, nullptr, "v"), -1);
    EXPECT_EQ(_httpc_get_var(&list, ""), nullptr);
    constexpr int count = 100'000; // the square of it would take hours
    for (int i = 0; i < count; i++) {
        const string name = std::to_string(i * 7 % count);
        EXPECT_EQ(_httpc_add_var(&list, (" \t" + name).c_str(), name.c_str()), 0);
        EXPECT_EQ(_httpc_add_var(&list, "same", name.c_str()), 0);
    }
    const httpc_var *node = list.first;
    const httpc_var *same = node->next;
    for (int i = 0; i < count; i++, node = i == 1 ? node->next->next : node->next) {
        const string number = std::to_string(i * 7 % count);
        ASSERT_EQ(node->name, number);
        EXPECT_EQ(_httpc_get_var(&list, number.c_str()), number);
        ASSERT_EQ(same->value, number);
        same = same->same_name;
    }
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ(same, nullptr);
    EXPECT_STREQ(_httpc_get_var(&list, "same"), "0");
    _httpc_free_vars(&list);
    EXPECT_EQ(list.first, nullptr);
    EXPECT_EQ(list.last, nullptr);
}
