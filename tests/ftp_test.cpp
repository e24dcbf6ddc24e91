// SPDX-License-Identifier: GPL-2.0-or-later
//
// The FTP downloader against a scripted server in a thread: what is on the wire, what is said on
// standard error, what is stored.
#include <atomic>
#include <csignal>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "download/ftp.h"
#include "download/ftp_url.h"

namespace {

using std::string;

/// Replies by command word; "" is the greeting, "END" what follows the data. In a reply "|" stands
/// between two reads, "!" closes the connection, "~" lets the client's silence limits pass after a
/// blink, "#" interrupts its read by a signal, "%" is the data port in two numbers.
using script = std::map<string, string>;
const script standard = {
    {"", "220 hello\r\n"},     {"USER", "331 password\r\n"}, {"PASS", "230 welcome\r\n"},
    {"TYPE", "200 image\r\n"}, {"SIZE", "213 10\r\n"},       {"PASV", "227 Go (10,9,8,7,%).\r\n"},
    {"RETR", "150 here\r\n"},  {"END", "226 done\r\n"},      {"QUIT", "221 bye\r\n"},
};

volatile std::sig_atomic_t interrupted = false;

class peer {
public:
    script replies = standard;
    string data;
    bool data_stays_open = false;
    string received;
    int port = 0;

    peer()
    {
        port = listen_on(&control_listener_);
        data_port_ = listen_on(&data_listener_);
        fcntl(data_listener_, F_SETFL, O_NONBLOCK);
    }
    void start()
    {
        thread_ = std::thread([this] { serve(); });
    }
    void stop()
    {
        stopping_ = true;
        shutdown(control_listener_, SHUT_RDWR);
        shutdown(control_, SHUT_RD);
        shutdown(data_, SHUT_RD);
        thread_.join();
        for (int fd : {control_listener_, data_listener_, control_.load(), data_.load()})
            close(fd);
    }

private:
    int control_listener_ = -1, data_listener_ = -1, data_port_ = 0;
    std::atomic<int> control_ = -1, data_ = -1;
    std::atomic<bool> stopping_ = false;
    const pthread_t client_ = pthread_self();
    const string client_state_ = "/proc/self/task/" + std::to_string(gettid()) + "/stat";
    std::thread thread_;

    static sockaddr_in name_of(int fd, int (*ask)(int, sockaddr *, socklen_t *))
    {
        sockaddr_in name = {};
        socklen_t size = sizeof(name);
        ask(fd, reinterpret_cast<sockaddr *>(&name), &size);
        return name;
    }
    static int listen_on(int *fd)
    {
        *fd = socket(AF_INET, SOCK_STREAM, 0);
        listen(*fd, 1); // on a free port
        return ntohs(name_of(*fd, getsockname).sin_port);
    }
    /// The client's end, in this same process, of our connection `fd`.
    static int other_end(int fd)
    {
        const in_port_t port = name_of(fd, getpeername).sin_port;
        int end = 255;
        while (end > 2 && name_of(end, getsockname).sin_port != port)
            end--;
        return end;
    }
    static void shorten_silence(int fd)
    {
        timeval limit = {};
        socklen_t size = sizeof(limit);
        getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &size);
        EXPECT_EQ(limit.tv_sec, 300);
        limit = {.tv_sec = 0, .tv_usec = 10000};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    }
    /// Until the client is in a read, the one thing it ever sleeps in.
    void wait_for_read()
    {
        for (string state; state != "S" && !stopping_; std::this_thread::yield())
            std::ifstream(client_state_) >> state >> state >> state;
    }
    void interrupt()
    {
        interrupted = false;
        pthread_kill(client_, SIGUSR1);
        while (!interrupted && !stopping_)
            std::this_thread::yield();
    }
    /// Sends one part and waits until the client has read it, so that the next has its own read.
    void send_part(string *part)
    {
        const int client = other_end(control_);
        send(control_, part->data(), part->size(), MSG_NOSIGNAL);
        part->clear();
        for (int left = 1; left != 0 && !stopping_; std::this_thread::yield())
            if (ioctl(client, FIONREAD, &left) != 0)
                return;
    }
    bool reply(const string &word)
    {
        string part;
        for (const char c : replies[word] + "|") {
            if (c == '!')
                return shutdown(control_, SHUT_RDWR) != 0;
            if (c == '~' || c == '#')
                wait_for_read();
            if (c == '~') {
                shorten_silence(other_end(control_));
                if (data_ >= 0)
                    shorten_silence(other_end(data_));
            } else if (c == '#') {
                interrupt();
            } else if (c == '|') {
                send_part(&part);
            } else if (c == '%') {
                part += std::to_string(data_port_ / 256) + "," + std::to_string(data_port_ % 256);
            } else {
                part += c;
            }
        }
        return true;
    }
    void serve()
    {
        control_ = accept(control_listener_, nullptr, nullptr);
        const int at_once = 1;
        setsockopt(control_, IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof(at_once));
        string line;
        bool open = reply("");
        for (char c = 0; open && recv(control_, &c, 1, 0) == 1;) {
            received += c;
            line += c;
            if (c != '\n')
                continue;
            const string word = line.substr(0, line.find_first_of(" \r"));
            line.clear();
            if (word == "RETR")
                send_data();
            open = reply(word);
            if (word == "RETR" && open) {
                recv(data_, &c, 1, 0); // some servers confirm only when the client has closed
                open = reply("END");
            }
        }
    }
    /// Before the reply to RETR, so that no shortened limit depends on our speed.
    void send_data()
    {
        data_ = accept(data_listener_, nullptr, nullptr);
        send(data_, data.data(), data.size(), MSG_NOSIGNAL);
        if (!data_stays_open)
            shutdown(data_, SHUT_WR);
    }
};

const string wire = "USER anonymous\r\nPASS getfile@\r\nTYPE I\r\nSIZE fw.pkg\r\nPASV\r\n"
                    "RETR fw.pkg\r\nQUIT\r\n";
#define SIZE_IS(size) "ftp->total = " #size "\n"
#define TOTALS(size, bytes) SIZE_IS(size) "iobuf->total = " #bytes "\n"
#define SAYS "ftp.c:ftp_downloader_download:"
#define FAILS "ftp.c:ftpcmd:127: fgets error: "
#define CLOSED FAILS "Connection reset by peer"
#define SILENT FAILS "Resource temporarily unavailable"
#define REFUSED "ftp.c:open_socket:106: connect error: Connection refused"

struct row {
    const char *what;
    script changed = {};
    string said = TOTALS(10, 10);
    int result = 0;
    int total = 10;
    string unsent = ""; ///< taken out of what is expected on the wire
    string data = "0123456789";
    int blocks = (total + 3) / 4; ///< committed; the buffer has 4, of 4 bytes each
    bool data_stays_open = false;
    string asks = ""; ///< what the callback is told; empty: not looked at
    int calls = 1000; ///< until it asks to stop
    string url = "";  ///< "%" for host and port
    string sent = wire;
};

struct progress {
    string asks;
    int left;
};

int note(void *argument, int count)
{
    auto *told = static_cast<progress *>(argument);
    told->asks += std::to_string(count) + " ";
    return --told->left;
}

/// A downloader and its URL live until the process ends.
downloader *open_ftp(const string &url)
{
    static auto *const kept = new std::deque<std::pair<string, downloader *>>;
    auto &[text, opened] = kept->emplace_back(url, nullptr);
    opened = ftp_downloader_open(text.data());
    return opened;
}

void expect_dialogue(const row &wanted)
{
    SCOPED_TRACE(wanted.what);
    peer server;
    for (const auto &[word, text] : wanted.changed)
        server.replies[word] = text;
    server.data = wanted.data;
    server.data_stays_open = wanted.data_stays_open;
    server.start();
    string url = wanted.url.empty() ? "ftp://%/fw.pkg" : wanted.url;
    downloader *ftp =
        open_ftp(url.replace(url.find('%'), 1, "127.0.0.1:" + std::to_string(server.port)));
    iobuf *buffer = iobuf_create(4, 4);
    progress told = {.asks = "", .left = wanted.calls};
    testing::internal::CaptureStderr();
    const int result = ftp->ops->download(ftp, buffer, note, &told);
    const string said = testing::internal::GetCapturedStderr();
    server.stop();

    string sent = wanted.sent;
    sent.erase(sent.find(wanted.unsent), wanted.unsent.size());
    EXPECT_EQ(server.received, sent);
    EXPECT_EQ(said, wanted.said);
    EXPECT_EQ(result, wanted.result);
    EXPECT_EQ(buffer->total, wanted.total);
    EXPECT_EQ(buffer->current, wanted.blocks);
    for (int at = 0; at < buffer->total; at++)
        EXPECT_EQ(buffer->blocks[at / 4][at % 4], wanted.data[static_cast<size_t>(at)]) << at;
    if (!wanted.asks.empty()) {
        EXPECT_EQ(told.asks, wanted.asks);
    }
    free(buffer);
}

class Ftp : public testing::Test {
protected:
    void SetUp() override
    {
        signal(SIGPIPE, SIG_IGN);
        struct sigaction interrupting = {};
        interrupting.sa_handler = [](int) { interrupted = true; };
        sigaction(SIGUSR1, &interrupting, nullptr);
    }
};

TEST_F(Ftp, ForgivesWhatItCanAndCountsOnlyTheBytes)
{
    const string pass = "PASS getfile@\r\n", quit = "QUIT\r\n";
    // clang-format off
    const row rows[] = {
        {.what = "all as it should be", .asks = "4 4 2 "},
        {"greeting 120", {{"", "120 soon\r\n"}}, SAYS "255: soon" TOTALS(10, 10), -1},
        {"greeting of several lines", {{"", "220-hello\r\n|220-  you\r\n|  220 x\r\n|220 there\r\n"}}},
        {"line lost that is cut in its code, text that is cut", {{"", "22|220 he|llo\r\n"}}},
        {"reply of three characters", {{"TYPE", "200\r\n|200 \r\n"}}},
        {"interrupted by a signal", {{"TYPE", "#200 image\r\n"}},
         FAILS "Interrupted system call" TOTALS(10, 10)},
        {"logged in without password", {{"USER", "230 in\r\n"}}, TOTALS(10, 10), 0, 10, pass},
        {"user refused", {{"USER", "530 \r\n"}}, SAYS "274: ftp login: \n" TOTALS(10, 10), 0, 10, pass},
        {"password refused", {{"PASS", "530 no\r\n"}}, SAYS "274: ftp login: no\n" TOTALS(10, 10)},
        {"type refused", {{"TYPE", "500 no\r\n"}}},
        {"size missing", {{"SIZE", "550 no\r\n"}}, TOTALS(0, 0), 0, 0},
        {"size garbage", {{"SIZE", "213 ten\r\n"}},
         SAYS "288: SIZE value is garbage\n" TOTALS(0, 0), -1, 0},
        {"size hexadecimal", {{"SIZE", "213 0xa\r\n"}}},
        {"size octal", {{"SIZE", "213 012 bytes\r\n"}}},
        {"size negative", {{"SIZE", "213 -4294967290\r\n"}}, TOTALS(-2147483648, 0), 0, 0},
        {"size beyond 32 bits and the buffer", {{"SIZE", "213 4294967306\r\n"}},
         SIZE_IS(2147483647), -1, 16, quit, "0123456789abcdefXYZ"},
        {"size of the whole buffer", {{"SIZE", "213 16\r\n"}}, TOTALS(16, 16), 0, 16, "", "0123456789abcdef"},
        {"more data than size", {{"SIZE", "213 6\r\n"}}, TOTALS(6, 8), 0, 8},
        {"passive reply without a number after a comma", {{"PASV", "227 256,,%\r\n"}}},
        {"passive mode refused", {{"PASV", "425 no\r\n"}},
         SAYS "298: PASV: no\n" REFUSED SIZE_IS(10), -1, 0, quit, "", 4},
        {"passive reply with one number", {{"PASV", "227 (7)\r\n"}}, REFUSED SIZE_IS(10), -1, 0, quit, "", 4},
        {"transfer refused", {{"RETR", "550 no file\r\n"}},
         SAYS "310: RETR: no file\n" SIZE_IS(10), -1, 0, quit, "", 4},
        {"data ends early", {}, SIZE_IS(10), -1, 6, quit, "012345", 4, false, "4 2 "},
        {"data goes silent", {{"RETR", "~150 here\r\n"}}, SIZE_IS(10), -1, 6, quit, "012345", 4, true, "4 2 "},
        {"the callback stops", {}, SIZE_IS(10), -1, 8, quit, "0123456789", 1, false, "4 4 ", 2},
        {"transfer not confirmed", {{"END", "426 broken\r\n"}}, TOTALS(10, 10) SAYS "362: ftp error\n"},
        {"closed instead of confirmed", {{"END", "!"}},
         TOTALS(10, 10) CLOSED SAYS "362: ftp error\n" CLOSED, 0, 10, quit},
        {"silent instead of confirmed and of the farewell",
         {{"RETR", "~150 here\r\n"}, {"END", ""}, {"QUIT", ""}},
         TOTALS(10, 10) SILENT SAYS "362: ftp error\n" SILENT},
    };
    // clang-format on
    for (const row &wanted : rows)
        expect_dialogue(wanted);
}

TEST_F(Ftp, FailsOnceWhenTheControlConnectionEndsOrGoesSilent)
{
    const string steps[] = {"", "USER", "PASS", "TYPE", "SIZE", "PASV", "RETR"};
    for (size_t at = 0; at < std::size(steps); at++) {
        const size_t end = at == 0 ? 0 : wire.find('\n', wire.find(steps[at])) + 1;
        row wanted = {.what = steps[at].c_str(), .result = -1, .total = 0};
        wanted.sent = wire.substr(0, end);
        wanted.changed = {{steps[at], "2|!"}};
        wanted.said = CLOSED;
        expect_dialogue(wanted);
        if (at == 0)
            continue; // the greeting's limit cannot be shortened from here
        wanted.changed = {{steps[at - 1], "~" + standard.at(steps[at - 1])},
                          {steps[at], "220-two lines\r\n220 in one read\r\n"},
                          {"END", ""}};
        wanted.said = SILENT;
        expect_dialogue(wanted);
    }
}

TEST_F(Ftp, SendsUserAndPathAsTheyAreWrittenAndNoCommandBeyondItsBuffer)
{
    const string fits(1016, 'x');
    row wanted = {.what = "password with both separators, sub-folder"};
    wanted.url = "ftp://me:a:b@c@%/d/f x";
    wanted.sent = "USER me\r\nPASS a:b@c\r\nTYPE I\r\nSIZE d/f x\r\nPASV\r\nRETR d/f x\r\nQUIT\r\n";
    expect_dialogue(wanted);
    wanted.what = "neither password nor path";
    wanted.url = "ftp://me@%";
    wanted.sent = "USER me\r\nPASS \r\nTYPE I\r\nSIZE \r\nPASV\r\nRETR \r\nQUIT\r\n";
    expect_dialogue(wanted);
    wanted.what = "longest path";
    wanted.url = "ftp://me@%/" + fits;
    wanted.sent =
        "USER me\r\nPASS \r\nTYPE I\r\nSIZE " + fits + "\r\nPASV\r\nRETR " + fits + "\r\nQUIT\r\n";
    expect_dialogue(wanted);
    expect_dialogue({.what = "longer path",
                     .said = "",
                     .result = -1,
                     .total = 0,
                     .url = "ftp://me@%/x" + fits,
                     .sent = "USER me\r\nPASS \r\nTYPE I\r\n"});
}

TEST_F(Ftp, SaysSoWhenTheHostIsUnknown)
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
