// SPDX-License-Identifier: GPL-2.0-or-later
//
// The FTP downloader against a scripted server that is played call by call: what is on the wire,
// what is said on standard error, what is stored. Real servers and silence are met on whole runs.
#include "download/ftp.h"

#include <deque>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <netinet/in.h>

#include "download/ftp_url.h"
#include "tests/played_network.h"

namespace {

using std::string;

constexpr int control_port = 2100;
constexpr int data_port = 2570; // 10,10 in a reply to PASV

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
    return text;
}

const string wire = "USER anonymous\r\nPASS getfile@\r\nTYPE I\r\nSIZE fw.pkg\r\nPASV\r\n"
                    "RETR fw.pkg\r\nQUIT\r\n";
#define SIZE_IS(size) "ftp->total = " #size "\n"
#define TOTALS(size, bytes) SIZE_IS(size) "iobuf->total = " #bytes "\n"
#define SAYS "ftp.c:ftp_downloader_download:"
#define FAILS "ftp.c:ftpcmd:127: fgets error: "
#define CLOSED FAILS "Connection reset by peer"
#define REFUSED "ftp.c:open_socket:106: connect error: Connection refused"

struct row {
    string what;
    script changed = {};
    string said = TOTALS(10, 10);
    int result = 0;
    int total = 10;
    string unsent = ""; ///< taken out of what is expected on the wire
    string data = "0123456789";
    int blocks = (total + 3) / 4;  ///< committed; the buffer has 4, of 4 bytes each
    string asks = "";              ///< what the callback is told; empty: not looked at
    int calls = 1000;              ///< until it asks to stop
    string url = "ftp://%/fw.pkg"; ///< "%" for host and port
    string sent = wire;
    int data_reads = -1; ///< -1: not looked at
};

/// A downloader and its URL live until the process ends.
downloader *open_ftp(const string &url)
{
    static auto *const kept = new std::deque<std::pair<string, downloader *>>;
    auto &[text, opened] = kept->emplace_back(url, nullptr);
    opened = ftp_downloader_open(text.data());
    return opened;
}

int last_socket; ///< that was connected, or was not

/// No peer can keep the program waiting for longer.
void expect_time_outs(int socket)
{
    last_socket = socket;
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO})
        EXPECT_EQ(socket_option<timeval>(socket, SOL_SOCKET, option).tv_sec, 300);
}

void expect_dialogue(const row &wanted)
{
    SCOPED_TRACE(wanted.what);
    played = {.peers = {{.port = control_port, .script = control_script(wanted.changed)},
                        {.port = data_port, .script = wanted.data}},
              .at_connect = expect_time_outs};
    const played_peer &control = played.peers[0];
    const played_peer &data = played.peers[1];
    string url = wanted.url;
    downloader *ftp =
        open_ftp(url.replace(url.find('%'), 1, "127.0.0.1:" + std::to_string(control_port)));
    iobuf *buffer = iobuf_create(4, 4);
    static string told;
    static int left;
    told.clear();
    left = wanted.calls;
    const auto note = [](void *, int count) {
        told += std::to_string(count) + " ";
        return --left;
    };
    testing::internal::CaptureStderr();
    const int result = ftp->ops->download(ftp, buffer, note, nullptr);
    const string said = testing::internal::GetCapturedStderr();
    string sent = wanted.sent;
    sent.erase(sent.find(wanted.unsent), wanted.unsent.size());
    EXPECT_EQ(control.received, sent);
    EXPECT_EQ(said, wanted.said);
    EXPECT_EQ(result, wanted.result);
    EXPECT_EQ(buffer->total, wanted.total);
    EXPECT_EQ(buffer->current, wanted.blocks);
    string stored = wanted.data;
    std::erase(stored, *PEER_INTERRUPTS);
    for (int at = 0; at < buffer->total; at++)
        EXPECT_EQ(buffer->blocks[at / 4][at % 4], stored[static_cast<size_t>(at)]) << at;
    EXPECT_EQ(wanted.data_reads < 0 ? -1 : data.reads, wanted.data_reads);
    if (said.find("connect error") != string::npos) {
        EXPECT_EQ(fcntl(last_socket, F_GETFD), -1); // closed
    }
    if (said.find("iobuf->total") != string::npos) {
        EXPECT_EQ(control.socket, -1);
        EXPECT_EQ(data.socket, -1);
    }
    EXPECT_EQ(wanted.asks.empty() ? "" : told, wanted.asks);
    free(buffer);
}

TEST(Ftp, ForgivesWhatItCanAndCountsOnlyTheBytes)
{
    const string pass = "PASS getfile@\r\n", quit = "QUIT\r\n", fits(1016, 'x');
    const string login = "USER me\r\nPASS \r\nTYPE I\r\n";
    // clang-format off
    const row rows[] = {
        // Each ask is for a whole block: the last one learns that there is no more.
        {.what = "all as it should be", .asks = "4 4 2 ", .data_reads = 4},
        {.what = "data interrupted by a signal", .data = "0123" PEER_INTERRUPTS "456789"},
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
        {"size octal", {{"SIZE", "213 012 bytes\r\n"}}},
        {"size negative", {{"SIZE", "213 -4294967290\r\n"}}, TOTALS(-2147483648, 0), 0, 0},
        {"size beyond 32 bits and the buffer", {{"SIZE", "213 4294967306\r\n"}},
         SIZE_IS(2147483647), -1, 16, quit, "0123456789abcdefXYZ"},
        {"size of the whole buffer", {{"SIZE", "213 16\r\n"}}, TOTALS(16, 16), 0, 16, "", "0123456789abcdef"},
        {"more data than size", {{"SIZE", "213 6\r\n"}}, TOTALS(6, 8), 0, 8},
        {"passive reply beyond 16 bits", {{"PASV", "227 ,266,10\r\n"}}},
        {"passive reply without a number after a comma", {{"PASV", "227 10,,2570\r\n"}}},
        {"passive mode refused", {{"PASV", "425 no\r\n"}},
         SAYS "298: PASV: no\n" REFUSED SIZE_IS(10), -1, 0, quit, "", 4},
        {"transfer refused", {{"RETR", "550 no file\r\n"}},
         SAYS "310: RETR: no file\n" SIZE_IS(10), -1, 0, quit, "", 4},
        {"data ends early", {}, SIZE_IS(10), -1, 6, quit, "012345", 4, "4 2 ", 1000, "ftp://%/fw.pkg", wire, 3},
        {"the callback stops", {}, SIZE_IS(10), -1, 8, quit, "0123456789", 1, "4 4 ", 2},
        {"transfer not confirmed", {{"END", "426 broken\r\n"}}, TOTALS(10, 10) SAYS "362: ftp error\n"},
        {"closed instead of confirmed", {{"END", PEER_CLOSE}},
         TOTALS(10, 10) CLOSED SAYS "362: ftp error\n" CLOSED},
        {.what = "password with both separators, sub-folder", .url = "ftp://me:a:b@c@%/d/f x",
         .sent = "USER me\r\nPASS a:b@c\r\nTYPE I\r\nSIZE d/f x\r\nPASV\r\nRETR d/f x\r\nQUIT\r\n"},
        {.what = "neither password nor path", .url = "ftp://me@%",
         .sent = login + "SIZE \r\nPASV\r\nRETR \r\nQUIT\r\n"},
        {.what = "longest path", .url = "ftp://me@%/" + fits,
         .sent = login + "SIZE " + fits + "\r\nPASV\r\nRETR " + fits + "\r\nQUIT\r\n"},
        {.what = "longer path", .said = "", .result = -1, .total = 0, .url = "ftp://me@%/x" + fits,
         .sent = login},
    };
    // clang-format on
    for (const row &wanted : rows)
        expect_dialogue(wanted);
}

TEST(Ftp, FailsOnceWhenTheControlConnectionEnds)
{
    const string reply = "220-two lines\r\n220 in one read, which is none\r\n" PEER_CLOSE;
    for (const string step : {"", "USER", "PASS", "TYPE", "SIZE", "PASV", "RETR"}) {
        row wanted = {"closed in " + step, {{step, reply}}, CLOSED, -1, 0};
        wanted.sent = step.empty() ? "" : wire.substr(0, wire.find('\n', wire.find(step)) + 1);
        expect_dialogue(wanted);
    }
}

TEST(Ftp, LeavesAServerThatSendsNoCompleteReply)
{
    string chatter;
    for (int i = 0; i < 999; i++)
        chatter += "220-more\r\n" PAUSE;
    expect_dialogue({"999 lines and a reply", {{"", chatter + "220 there\r\n"}}});
    row wanted = {"1000 lines", {{"", chatter + "220-more\r\n" PAUSE "220 there\r\n"}}};
    wanted.said = FAILS "Resource temporarily unavailable";
    wanted.result = -1;
    wanted.total = wanted.blocks = 0;
    wanted.sent = "";
    expect_dialogue(wanted);
}

TEST(Ftp, SaysSoWhenTheHostIsUnknown)
{
    downloader *ftp = open_ftp("ftp://256.1.1.1/f");
    testing::internal::CaptureStderr();
    EXPECT_EQ(ftp->ops->download(ftp, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ftp.c:open_socket:106: connect error: Unknown host" FAILS "Bad file descriptor");
}

TEST(FtpUrl, IsTakenApartInPlace)
{
    struct {
        const char *url, *user, *host, *path, *left;
        int port;
    } const rows[] = {
        {"ftp://host/fw.pkg", nullptr, "host", "fw.pkg", "ftp://host", 21},
        {"ftp://u:p@h:2121/dir/f", "u:p", "h", "dir/f", "ftp://u:p", 2121},
        {"ftp://u@a:b@c@h", "u@a:b@c", "h", nullptr, "ftp://u@a:b@c", 21},
        {"ftp://h/u@x:1/y", nullptr, "h", "u@x:1/y", "ftp://h", 21},
        {"ftp://@:/", "", "", "", "ftp://", 0},
        {"ftp://h:65537:9/", nullptr, "h", "", "ftp://h", 1},
        {"ftp://h:99999999999/", nullptr, "h", "", "ftp://h", 65535},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.url);
        string url = row.url;
        ftp_url parts = {};
        ASSERT_EQ(parse_url(url.data(), &parts), 0);
        EXPECT_STREQ(parts.user, row.user);
        EXPECT_STREQ(parts.host, row.host);
        EXPECT_STREQ(parts.path, row.path);
        EXPECT_EQ(ntohs(parts.port), row.port);
        EXPECT_STREQ(url.c_str(), row.left);
    }
    for (const string stranger : {"FTP://h/f", "ftps://h/f", "ftp:/h"}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(open_ftp(stranger), nullptr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "not a ftp url: " + stranger + "\n");
    }
}

} // namespace
