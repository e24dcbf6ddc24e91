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
/// between two reads, "!" closes the connection, "#" interrupts the client's read by a signal, "%"
/// is the data port in two numbers. What silence does is shown on whole runs.
using script = std::map<string, string>;
const script standard = {
    {"", "220 hello\r\n"},     {"USER", "331 password\r\n"}, {"PASS", "230 welcome\r\n"},
    {"TYPE", "200 image\r\n"}, {"SIZE", "213 10\r\n"},       {"PASV", "227 Go (10,9,8,7,%).\r\n"},
    {"RETR", "150 here\r\n"},  {"END", "226 done\r\n"},      {"QUIT", "221 bye\r\n"},
};

class peer {
public:
    string received;
    int port = 0;

    peer(script replies, string data) : replies_(std::move(replies)), data_bytes_(std::move(data))
    {
        signal(SIGPIPE, SIG_IGN);
        port = listen_on(&control_listener_);
        data_port_ = listen_on(&data_listener_);
        fcntl(data_listener_, F_SETFL, O_NONBLOCK);
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
    script replies_;
    string data_bytes_;
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
    /// Once the client is in a read, the one thing it ever sleeps in.
    void interrupt()
    {
        for (string state; state != "S" && !stopping_; std::this_thread::yield())
            std::ifstream(client_state_) >> state >> state >> state;
        static volatile std::sig_atomic_t interrupted;
        interrupted = false;
        struct sigaction interrupting = {}; // without SA_RESTART
        interrupting.sa_handler = [](int) { interrupted = true; };
        sigaction(SIGUSR1, &interrupting, nullptr);
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
        for (const char c : replies_[word] + "|") {
            if (c == '!')
                return shutdown(control_, SHUT_RDWR) != 0;
            if (c == '#')
                interrupt();
            else if (c == '|')
                send_part(&part);
            else if (c == '%')
                part += std::to_string(data_port_ / 256) + "," + std::to_string(data_port_ % 256);
            else
                part += c;
        }
        return true;
    }
    void serve()
    {
        control_ = accept(control_listener_, nullptr, nullptr);
        const int at_once = 1;
        setsockopt(control_, IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof(at_once));
        char line[2000]; // the client sends a command at once and waits for its reply
        ssize_t size = 0;
        for (bool open = reply(""); open && (size = recv(control_, line, sizeof(line), 0)) > 0;) {
            const string command(line, static_cast<size_t>(size));
            const string word = command.substr(0, command.find_first_of(" \r"));
            received += command;
            if (word == "RETR") {
                data_ = accept(data_listener_, nullptr, nullptr);
                send(data_, data_bytes_.data(), data_bytes_.size(), MSG_NOSIGNAL);
                shutdown(data_, SHUT_WR);
            }
            open = reply(word);
            if (word == "RETR" && open) {
                recv(data_, line, 1, 0); // some servers confirm only when the client has closed
                open = reply("END");
            }
        }
    }
};

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
};

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
    script replies = wanted.changed;
    replies.insert(standard.begin(), standard.end()); // those that are not changed
    peer server(replies, wanted.data);
    string url = wanted.url;
    downloader *ftp =
        open_ftp(url.replace(url.find('%'), 1, "127.0.0.1:" + std::to_string(server.port)));
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
    EXPECT_EQ(wanted.asks.empty() ? "" : told, wanted.asks);
    free(buffer);
}

TEST(Ftp, ForgivesWhatItCanAndCountsOnlyTheBytes)
{
    const string pass = "PASS getfile@\r\n", quit = "QUIT\r\n", fits(1016, 'x');
    const string login = "USER me\r\nPASS \r\nTYPE I\r\n";
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
        {"password refused", {{"PASS", "530 no\r\n"}}, SAYS "274: ftp login: no\n" TOTALS(10, 10)},
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
        {"passive reply without a number after a comma", {{"PASV", "227 256,,%\r\n"}}},
        {"passive mode refused", {{"PASV", "425 no\r\n"}},
         SAYS "298: PASV: no\n" REFUSED SIZE_IS(10), -1, 0, quit, "", 4},
        {"transfer refused", {{"RETR", "550 no file\r\n"}},
         SAYS "310: RETR: no file\n" SIZE_IS(10), -1, 0, quit, "", 4},
        {"data ends early", {}, SIZE_IS(10), -1, 6, quit, "012345", 4, "4 2 "},
        {"the callback stops", {}, SIZE_IS(10), -1, 8, quit, "0123456789", 1, "4 4 ", 2},
        {"transfer not confirmed", {{"END", "426 broken\r\n"}}, TOTALS(10, 10) SAYS "362: ftp error\n"},
        {"closed instead of confirmed", {{"END", "!"}},
         TOTALS(10, 10) CLOSED SAYS "362: ftp error\n" CLOSED, 0, 10, quit},
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
    const string reply = "220-two lines\r\n220 in one read, which is none\r\n|!";
    for (const string step : {"", "USER", "PASS", "TYPE", "SIZE", "PASV", "RETR"}) {
        row wanted = {"closed in " + step, {{step, reply}}, CLOSED, -1, 0};
        wanted.sent = step.empty() ? "" : wire.substr(0, wire.find('\n', wire.find(step)) + 1);
        expect_dialogue(wanted);
    }
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
