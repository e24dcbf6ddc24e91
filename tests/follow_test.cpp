// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the follower reads and keeps: JSON, recordings, the socket's place.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tools/follow/json.h"
#include "tools/follow/receiver.h"
#include "tools/follow/recording.h"

namespace {

using namespace follow;
namespace fs = std::filesystem;

TEST(FollowJson, WritesStringsThatNobodyCanMisread)
{
    const std::pair<std::string, const char *> rows[] = {
        {"a \"b\" \\ </script>", R"("a \"b\" \\ </script>")"},
        {std::string("\x1b[2J\n\0\x7f", 7), R"("\u001b[2J\u000a\u0000\u007f")"},
        {"\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80", R"("\u00e4 \u20ac \ud83d\ude00")"},
        // Not UTF-8: a lone continuation, overlong, a surrogate, beyond the last, cut.
        {"\x80", R"("\ufffd")"},
        {"\xc0\xaf", R"("\ufffd\ufffd")"},
        {"\xe0\x80\x80", R"("\ufffd\ufffd\ufffd")"},
        {"\xed\xbf\xbf", R"("\ufffd\ufffd\ufffd")"},
        {"\xf4\x90\x80\x80", R"("\ufffd\ufffd\ufffd\ufffd")"},
        {"x\xe2\x82", R"("x\ufffd\ufffd")"},
        {std::string(9000, 'x'), nullptr}, // what does not fit is left out
    };
    for (const auto &[text, wanted] : rows) {
        text_buffer written;
        append_string(&written, text);
        EXPECT_EQ(written.view(), wanted == nullptr ? '"' + text.substr(0, 8191) : wanted);
    }
}

using datagrams = std::vector<std::pair<int64_t, std::string>>;

/// A folder of the test's own.
class FollowFiles : public testing::Test {
protected:
    fs::path folder_ = [] {
        std::string name = fs::temp_directory_path() / "followXXXXXX";
        return fs::path(mkdtemp(name.data()));
    }();
    const std::string path_ = folder_ / "file";
    text_buffer error_;

    ~FollowFiles() override
    {
        fs::remove_all(folder_);
    }
    std::string error()
    {
        return {error_.data.data(), std::exchange(error_.size, 0)};
    }
    /// What is wrong with a recording of this content; its datagrams, each with its time in ms.
    std::string play(const std::string &content, datagrams *played)
    {
        if (!content.empty())
            std::ofstream(path_) << content;
        playback play;
        if (playback_open(&play, path_.c_str(), &error_))
            while (playback_next(&play, &error_) == playback_datagram)
                played->emplace_back(play.at_ms, play.datagram);
        played->emplace_back(play.clock_ms + play.at_ms, "end");
        if (play.file != nullptr)
            fclose(play.file);
        return error();
    }
};

TEST_F(FollowFiles, GiveBackEveryByteAndTimeOfARecording)
{
    std::ofstream(path_) << std::string(1'000'000, 'x'); // an older one
    std::string bytes(256, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0');
    std::vector<std::string> texts = {
        "UPGRD_STAGE=WRITING", "", "\"quotes\" and \\", "x\x7f", bytes, std::string(65'536, 'x')};
    texts.resize(300, std::string(datagram_room, 'y')); // more than a buffer holds
    recording made = {};
    ASSERT_TRUE(recording_create(&made, path_.c_str()));
    datagrams wanted;
    datagrams played;
    for (const std::string &text : texts) {
        const auto at_ms = static_cast<int64_t>(wanted.size()) * 7;
        ASSERT_TRUE(recording_add(&made, text.data(), text.size(), {5000 + at_ms, 1'000'123}));
        wanted.emplace_back(at_ms, text.substr(0, datagram_room));
    }
    ASSERT_TRUE(recording_close(&made, "done", {9000, 0}));
    wanted.emplace_back(1'000'123 + 4000, "end");
    EXPECT_EQ(play("", &played), "");
    EXPECT_EQ(played, wanted);
    const std::string whole = (std::ostringstream() << std::ifstream(path_).rdbuf()).str();
    EXPECT_TRUE(
        whole.starts_with("{\"format\":\"upgrade datagrams\",\"version\":1,\"clock\":1000.123}\n"
                          "{\"at\":0.000,\"text\":\"UPGRD_STAGE=WRITING\"}\n"
                          "{\"at\":0.007,\"text\":\"\"}\n"
                          "{\"at\":0.014,\"text\":\"\\\"quotes\\\" and \\\\\"}\n"
                          "{\"at\":0.021,\"hex\":\"787f\"}\n"));
    EXPECT_NE(whole.find("x\",\"size\":65536}\n"), std::string::npos);
    EXPECT_TRUE(whole.ends_with("\n{\"at\":4.000,\"end\":\"done\"}\n"));
}

TEST_F(FollowFiles, MayBeRecordingsThatOthersWrote)
{
    datagrams played;
    const datagrams wanted = {
        {1250, "a\"\\/\b\f\n\r\t\xc3\xa4\xf0\x9f\x98\x80"}, {12'345, "\xab"}, {12'345, "end"}};
    EXPECT_EQ(play("\t{ \"version\" : 1, \"format\":\"upgrade datagrams\"} \r\n"
                   R"( {"at" : 1.25 ,"text":"a\"\\\/\b\f\n\r\t\u00E4\ud83d\ude00","x":null} )"
                   "\n"
                   R"({"at":12.3456,"hex":"AB","text":true})"
                   "\n",
                   &played),
              "");
    EXPECT_EQ(played, wanted);
}

TEST_F(FollowFiles, AreNamedWithWhatIsWrongInARecording)
{
    const std::string head = "{\"format\":\"upgrade datagrams\",\"version\":1,\"clock\":1.5}\n";
    std::vector<std::pair<std::string, std::string>> faults = {
        {"\n", ": no line of a recording"},
        {"{\"format\":\"upgr", ": ends within a line"},
        {"{\"format\":\"other\",\"version\":1}\n", ": no recording of datagrams"},
        {"{\"format\":\"upgrade datagrams\",\"version\":2}\n",
         ": a recording of another version than 1, which this program knows"},
        {"{\"format\":\"upgrade datagrams\",\"version\":1,\"clock\":-1}\n",
         ": a recording with a wrong clock"},
        {head + "{\"at\":1,\"text\":\"UPG", ":2: ends within a line"},
        {head + '\0' + "\n", ":2: ends within a line"},
        {head + "{\"at\":1}\n", ":2: no datagram"},
        {head + "{\"at\":2,\"hex\":\"0\"}\n", ":2: no datagram"},
        {head + "{\"at\":2,\"hex\":\"zz\"}\n", ":2: no datagram"},
        {head + "{\"at\":2,\"text\":\"x\"}\n{\"at\":2,\"text\":\"x\"}\n{\"at\":1,\"text\":\"x\"}\n",
         ":4: the time runs backwards"},
        {head + std::string(5000, ' ') + "\n", ":2: too long a line"},
        {head + "{\"at\":1,\"text\":\"" + std::string(300, 'x') + "\"}\n", ":2: no datagram"},
    };
    for (const char *json :
         {"{", "[]", "{}x", "{\"a\"}", "{\"a\":}", "{\"a\":1,}", "{\"a\":{}}", "{\"a\":[1]}",
          R"({"a":"b)", R"({"a":"\x"})", R"({"a":"\u12"})", R"({"a":"\ud800"})",
          R"({"a":"\ud800\u0041"})", R"({"a":"\udc00"})", R"({"a":"\u0000"})", "{\"a\":\"\t\"}",
          R"({"a":1,"b":1,"c":1,"d":1,"e":1,"f":1,"g":1,"h":1,"i":1})"})
        faults.emplace_back(json + std::string("\n"), ": no line of a recording");
    for (const char *time : {"\"\"", ".5", "1.", "-1", "1e3", "\"1 \"", "999999999999", "true"})
        faults.emplace_back(head + "{\"at\":" + time + ",\"text\":\"\"}\n", ":2: no time");
    std::ofstream(path_).close();
    datagrams played;
    EXPECT_EQ(play("", &played), path_ + ": empty");
    for (const auto &[content, fault] : faults)
        EXPECT_EQ(play(content, &played), path_ + fault) << content;
}

TEST_F(FollowFiles, ServeAsSocketsThatNobodyElseListensOn)
{
    const auto open = [this](receiver *socket, mode_t mode) {
        const bool good = receiver_open(socket, path_.c_str(), mode, &error_);
        struct stat status = {};
        EXPECT_TRUE(!good ||
                    (lstat(path_.c_str(), &status) == 0 && (status.st_mode & 0777) == mode));
        return good ? "" : error().substr(path_.size());
    };
    const mode_t mask = umask(0);
    receiver first;
    ASSERT_EQ(open(&first, 0600), "");
    EXPECT_EQ(umask(mask), 0U); // as it was
    receiver second;
    EXPECT_EQ(open(&second, 0600), ": another program listens there");
    close(first.fd); // as if it had been killed
    ASSERT_EQ(open(&second, 0622), "");
    // Somebody else's by now: it stays.
    fs::rename(path_, folder_ / "elsewhere");
    std::ofstream(path_) << "mine";
    receiver_close(&second);
    EXPECT_TRUE(fs::exists(path_));
    EXPECT_EQ(open(&second, 0600), ": is there and no socket");
    fs::remove(path_);
    ASSERT_EQ(open(&second, 0600), "");
    // Of a datagram of 64 KiB the beginning is taken; an empty one is one.
    const int sender = socket(AF_UNIX, SOCK_DGRAM, 0);
    const auto *address = reinterpret_cast<const sockaddr *>(&second.address);
    for (const std::string &sent : {std::string(65'536, 'x'), std::string()})
        sendto(sender, sent.data(), sent.size(), 0, address, sizeof second.address);
    char data[datagram_room];
    for (const ssize_t size : {65'536, 0, -1})
        EXPECT_EQ(receiver_take(&second, data), size);
    close(sender);
    receiver_close(&second);
    EXPECT_FALSE(fs::exists(path_));
    for (const std::string &wrong : {std::string(108, 'x'), std::string()}) {
        EXPECT_FALSE(receiver_open(&second, wrong.c_str(), 0600, &error_));
        EXPECT_EQ(error(), wrong + ": a socket's path has 1 to 107 bytes");
    }
}

} // namespace
