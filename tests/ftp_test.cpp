// SPDX-License-Identifier: GPL-2.0-or-later
//
// The FTP downloader against a scripted server that is played call by call: what is on the wire,
// what is said on standard error, what is stored. Real servers and silence are met on whole runs.
#include "download/ftp.h"

#include <gtest/gtest.h>
#include <map>

#include "fuzz/support/world.h"

namespace {

using std::string;

#define PAUSE PEER_PAUSE

/// Replies by command word, in the order of the dialogue; "" is the greeting, "END" what follows
/// the data. No reply: the command is not expected.
using script = std::map<string, string>;
const std::pair<string, string> standard[] = {
    {"", "220 hello\r\n"},       {"USER", "331 password\r\n"},
    {"PASS", "230 welcome\r\n"}, {"TYPE", "200 image\r\n"},
    {"SIZE", "213 10\r\n"},      {"PASV", "227 Go (10,9,8,7,10,10).\r\n"},
    {"RETR", "150 here\r\n"},    {"END", "226 done\r\n"},
    {"QUIT", "221 bye\r\n"},
};

string control_script(const script &changed)
{
    string text;
    for (const auto &[word, usual] : standard) {
        const auto found = changed.find(word);
        const string &reply = found == changed.end() ? usual : found->second;
        if (!word.empty() && !reply.empty())
            text += word == "END" ? PAUSE : PEER_AWAITS_LINE;
        text += reply;
    }
    return text.substr(0, text.find(PEER_CLOSE[0]));
}

const string wire = "USER anonymous\r\nPASS getfile@\r\nTYPE I\r\nSIZE fw.pkg\r\nPASV\r\n"
                    "RETR fw.pkg\r\nQUIT\r\n";
#define SIZE_IS(size) "ftp->total = " #size "\n"
#define TOTALS(size, bytes) SIZE_IS(size) "iobuf->total = " #bytes "\n"
#define SAYS "ftp.c:ftp_downloader_download:"
#define FAILS "ftp.c:ftpcmd:127: fgets error: "
#define CLOSED FAILS "Connection reset by peer"
#define REFUSED "ftp.c:open_socket:106: connect error: Connection refused"
#define UNKNOWN "ftp.c:open_socket:106: connect error: Unknown host"

struct row {
    string what;
    script changed = {};
    string said = TOTALS(10, 10);
    int result = 0;
    int total = 10;
    string unsent = ""; ///< taken out of what is expected on the wire
    string data = "0123456789";
    string asks = "";              ///< what the callback is told; empty: not looked at
    int calls = 1000;              ///< until it asks to stop
    string url = "ftp://%/fw.pkg"; ///< "%" for host and port
    string sent = wire;
};

void expect_dialogue(const row &wanted)
{
    SCOPED_TRACE(wanted.what);
    string url = wanted.url;
    url.replace(url.find('%'), 1, "127.0.0.1:2100");
    const string text = control_script(wanted.changed) + PEER_CLOSE + wanted.data;
    fuzz::world world = {.script = {text.begin(), text.end()}, .refuses = true};
    static string told;
    static int left;
    told.clear();
    left = wanted.calls;
    const auto note = [](void *, int count) {
        told += std::to_string(count) + " ";
        return --left;
    };
    size_t open = 0;
    testing::internal::CaptureStderr();
    {
        const fuzz::run run(&world);
        downloader *ftp = ftp_downloader_open(url.data());
        iobuf *buffer = iobuf_create(4, 4);
        EXPECT_EQ(ftp->ops->download(ftp, buffer, note, nullptr), wanted.result);
        EXPECT_EQ(buffer->total, wanted.total);
        string stored;
        for (int at = 0; at < buffer->total; at++)
            stored += static_cast<char>(buffer->blocks[at / 4][at % 4]);
        string data = wanted.data;
        std::erase(data, *PEER_INTERRUPTS);
        EXPECT_EQ(stored, data.substr(0, stored.size()));
        open = fuzz::run::open_descriptors();
    }
    const string said = testing::internal::GetCapturedStderr();
    EXPECT_LE(open, world.connections.size()); // a refused socket is closed at once
    world.connections.resize(2);               // also where it made none
    string sent = wanted.sent;
    sent.erase(sent.find(wanted.unsent), wanted.unsent.size());
    EXPECT_EQ(world.connections[0].received, sent);
    EXPECT_EQ(said, wanted.said);
    if (said.find("iobuf->total") != string::npos) {
        EXPECT_EQ(world.connections[0].address, "127.0.0.1:2100");
        EXPECT_EQ(world.connections[1].address, "127.0.0.1:2570"); // 10,10 in the reply to PASV
        EXPECT_EQ(open, 0U);
    }
    EXPECT_EQ(wanted.asks.empty() ? "" : told, wanted.asks);
}

TEST(Ftp, ForgivesWhatItCanAndCountsOnlyTheBytes)
{
    const string pass = "PASS getfile@\r\n", quit = "QUIT\r\n", fits(1016, 'x');
    const string login = "USER me\r\nPASS \r\nTYPE I\r\n";
    // clang-format off
    const row rows[] = {
        // Each ask is for a whole block: the last one learns that there is no more.
        {.what = "all as it should be", .asks = "4 4 2 "},
        {"greeting 120", {{"", "120 soon\r\n"}}, SAYS "255: soon" TOTALS(10, 10), -1},
        {"greeting of several lines", {{"", "220-hello\r\n" PAUSE "220-  you\r\n" PAUSE "abc 220\r\n" PAUSE "220 there\r\n"}}},
        {"line lost that is cut in its code, text that is cut", {{"", "22" PAUSE "220 he" PAUSE "llo\r\n"}}},
        {"reply of three characters", {{"TYPE", "200\r\n" PAUSE "200 \r\n"}}},
        {"interrupted by a signal", {{"TYPE", PEER_INTERRUPTS "200 image\r\n"}},
         FAILS "Interrupted system call" TOTALS(10, 10)},
        {"logged in without password", {{"USER", "230 in\r\n"}, {"PASS", ""}}, TOTALS(10, 10), 0, 10, pass},
        {"password refused", {{"PASS", "530 no\r\n"}}, SAYS "274: ftp login: no\n" TOTALS(10, 10)},
        {"transfer on a connection that is there", {{"RETR", "125 here\r\n"}}},
        {"type refused", {{"TYPE", "500 no\r\n"}}},
        {"size missing", {{"SIZE", "550 no\r\n"}}, TOTALS(0, 0), 0, 0},
        {"size garbage", {{"SIZE", "213 ten\r\n"}},
         SAYS "288: SIZE value is garbage\n" TOTALS(0, 0), -1, 0},
        {"size beyond 32 bits and the buffer", {{"SIZE", "213 4294967306\r\n"}},
         SIZE_IS(2147483647), -1, 16, quit, "0123456789abcdefXYZ"},
        {"size of the whole buffer", {{"SIZE", "213 16\r\n"}}, TOTALS(16, 16), 0, 16, "", "0123456789abcdef"},
        {"more data than size", {{"SIZE", "213 6\r\n"}}, TOTALS(6, 8), 0, 8},
        {"passive reply beyond 16 bits", {{"PASV", "227 ,266,10\r\n"}}},
        {"passive mode refused", {{"PASV", "425 no\r\n"}},
         SAYS "298: PASV: no\n" REFUSED SIZE_IS(10), -1, 0, quit, ""},
        {"transfer refused", {{"RETR", "550 no file\r\n"}},
         SAYS "310: RETR: no file\n" SIZE_IS(10), -1, 0, quit, PAUSE},
        {"data ends early", {}, SIZE_IS(10), -1, 6, quit, "012345", "4 2 "},
        {"data behind a failed read", {}, SIZE_IS(10), -1, 4, quit, "0123" PEER_FAILS "456789", "4 "},
        {"interrupted in the data", {}, TOTALS(10, 10), 0, 10, "", "01234" PEER_INTERRUPTS "56789"},
        {"the callback stops", {}, SIZE_IS(10), -1, 8, quit, "0123456789", "4 4 ", 2},
        {"transfer not confirmed", {{"END", "426 broken\r\n"}}, TOTALS(10, 10) SAYS "362: ftp error\n"},
        {"closed instead of confirmed", {{"END", PEER_CLOSE}},
         TOTALS(10, 10) CLOSED SAYS "362: ftp error\n" CLOSED},
        {.what = "password with both separators, sub-folder", .url = "ftp://me:a:b@c@%/d/f x",
         .sent = "USER me\r\nPASS a:b@c\r\nTYPE I\r\nSIZE d/f x\r\nPASV\r\nRETR d/f x\r\nQUIT\r\n"},
        {.what = "separators in the path", .url = "ftp://me@%/u@x:1/y",
         .sent = login + "SIZE u@x:1/y\r\nPASV\r\nRETR u@x:1/y\r\nQUIT\r\n"},
        {.what = "longest path", .url = "ftp://me@%/" + fits,
         .sent = login + "SIZE " + fits + "\r\nPASV\r\nRETR " + fits + "\r\nQUIT\r\n"},
        {.what = "longer path", .said = "", .result = -1, .total = 0, .url = "ftp://me@%/x" + fits,
         .sent = login},
        {.what = "unknown host", .said = UNKNOWN FAILS "Bad file descriptor", .result = -1, .total = 0,
         .url = "ftp://unknown.%/f", .sent = ""},
    };
    // clang-format on
    for (const row &wanted : rows)
        expect_dialogue(wanted);
}

TEST(Ftp, FailsOnceWhenTheControlConnectionEndsOrSendsNoCompleteReply)
{
    const string reply = "220-two lines\r\n220 in one read, which is none\r\n" PEER_CLOSE;
    for (const string step : {"", "USER", "PASS", "TYPE", "SIZE", "PASV", "RETR"}) {
        row wanted = {"closed in " + step, {{step, reply}}, CLOSED, -1, 0};
        wanted.sent = step.empty() ? "" : wire.substr(0, wire.find('\n', wire.find(step)) + 1);
        expect_dialogue(wanted);
    }
    string chatter;
    for (int i = 0; i < 999; i++)
        chatter += "220-more\r\n" PAUSE;
    expect_dialogue({"999 lines and a reply", {{"", chatter + "220 there\r\n"}}});
    expect_dialogue({.what = "1000 lines",
                     .changed = {{"", chatter + "220-more\r\n" PAUSE "220 there\r\n"}},
                     .said = FAILS "Resource temporarily unavailable",
                     .result = -1,
                     .total = 0,
                     .sent = ""});
}

} // namespace
