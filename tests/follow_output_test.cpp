// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the follower reads and keeps: JSON, recordings, the socket's place, its options.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <getopt.h>
#include <random>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tools/follow/json.h"
#include "tools/follow/options.h"
#include "tools/follow/receiver.h"
#include "tools/follow/recording.h"

namespace {

using namespace follow;
namespace fs = std::filesystem;

std::string json_of(std::string_view text)
{
    char data[1024];
    text_buffer buffer = {data, sizeof data, 0, false};
    append_string(&buffer, text);
    return {data, buffer.size};
}

TEST(FollowJson, WritesStringsThatNobodyCanMisread)
{
    EXPECT_EQ(json_of("a \"b\" \\ </script>"), R"("a \"b\" \\ </script>")");
    EXPECT_EQ(json_of(std::string_view("\x1b[2J\n\0", 6)), R"("\u001b[2J\u000a\u0000")");
    EXPECT_EQ(json_of("\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80"), R"("\u00e4 \u20ac \ud83d\ude00")");
    // Not UTF-8: a lone continuation, overlong, a surrogate, beyond the last, cut.
    EXPECT_EQ(json_of("\x80"), R"("\ufffd")");
    EXPECT_EQ(json_of("\xc0\xaf"), R"("\ufffd\ufffd")");
    EXPECT_EQ(json_of("\xe0\x80\x80"), R"("\ufffd\ufffd\ufffd")");
    EXPECT_EQ(json_of("\xed\xbf\xbf"), R"("\ufffd\ufffd\ufffd")");
    EXPECT_EQ(json_of("\xf4\x90\x80\x80"), R"("\ufffd\ufffd\ufffd\ufffd")");
    EXPECT_EQ(json_of("x\xe2\x82"), R"("x\ufffd\ufffd")");
}

TEST(FollowJson, ReadsFlatObjectsAndNothingElse)
{
    std::string line =
        R"( {"at" : 1.25 ,"text":"a\"\\\/\b\f\n\r\t\u00E4\ud83d\ude00","end":null} )";
    json_object object;
    ASSERT_TRUE(read_object(line.data(), line.size(), &object));
    ASSERT_EQ(object.count, 3U);
    EXPECT_EQ(find_member(&object, "at")->text, "1.25");
    EXPECT_EQ(find_member(&object, "text")->text, "a\"\\/\b\f\n\r\t\xc3\xa4\xf0\x9f\x98\x80");
    EXPECT_FALSE(find_member(&object, "end")->is_string);
    EXPECT_EQ(find_member(&object, "other"), nullptr);
    for (std::string wrong :
         {"", "{", "[]", "{}x", "{\"a\"}", "{\"a\":}", "{\"a\":1,}", "{\"a\":{}}", "{\"a\":[1]}",
          R"({"a":"b)", R"({"a":"\x"})", R"({"a":"\u12"})", R"({"a":"\ud800"})",
          R"({"a":"\ud800\u0041"})", R"({"a":"\udc00"})", R"({"a":"\u0000"})", "{\"a\":\"\n\"}",
          R"({"a":1,"b":1,"c":1,"d":1,"e":1,"f":1,"g":1,"h":1,"i":1})"})
        EXPECT_FALSE(read_object(wrong.data(), wrong.size(), &object)) << wrong;
    int64_t milliseconds = 0;
    EXPECT_TRUE(read_seconds("0", &milliseconds) && milliseconds == 0);
    EXPECT_TRUE(read_seconds("12.3456", &milliseconds) && milliseconds == 12'345);
    for (const char *wrong : {"", ".5", "1.", "-1", "1e3", "1 ", "999999999999", "nan"})
        EXPECT_FALSE(read_seconds(wrong, &milliseconds)) << wrong;
}

/// A folder of the test's own.
class FollowFiles : public testing::Test {
protected:
    fs::path folder_ = [] {
        std::string name = fs::temp_directory_path() / "followXXXXXX";
        return fs::path(mkdtemp(name.data()));
    }();
    const std::string path_ = folder_ / "file";
    char error_[512] = "";

    ~FollowFiles() override
    {
        fs::remove_all(folder_);
    }
    bool open_receiver(receiver *socket, mode_t mode = 0600)
    {
        return receiver_open(socket, path_.c_str(), mode, error_, sizeof error_);
    }
    unsigned mode() const
    {
        struct stat status = {};
        EXPECT_EQ(lstat(path_.c_str(), &status), 0);
        return status.st_mode & 07777;
    }
};

TEST_F(FollowFiles, GiveBackEveryByteAndTimeOfARecording)
{
    std::mt19937 random(3);
    std::ofstream(path_) << std::string(1'000'000, 'x'); // an older one
    std::vector<std::string> texts = {"UPGRD_STAGE=WRITING", "", "\"quotes\" and \\",
                                      std::string(65'536, 'x')};
    while (texts.size() < 200) {
        texts.emplace_back(random() % (datagram_room + 1), '\0');
        for (char &byte : texts.back())
            byte = static_cast<char>(random());
    }
    recording made = {};
    ASSERT_TRUE(recording_create(&made, path_.c_str()));
    for (size_t index = 0; index < texts.size(); index++)
        ASSERT_TRUE(recording_add(&made, texts[index].data(), texts[index].size(),
                                  5000 + static_cast<int64_t>(index) * 7, 1'700'000'000'123));
    ASSERT_TRUE(recording_close(&made, "done", 9000, 0));
    EXPECT_LT(fs::file_size(path_), 1'000'000U);
    playback play;
    ASSERT_TRUE(playback_open(&play, path_.c_str(), error_, sizeof error_)) << error_;
    EXPECT_EQ(play.clock_ms, 1'700'000'000'123);
    for (size_t index = 0; index < texts.size(); index++) {
        ASSERT_EQ(playback_next(&play, error_, sizeof error_), playback_datagram) << error_;
        ASSERT_EQ(std::string(play.data.data(), play.size), texts[index].substr(0, datagram_room));
        ASSERT_EQ(play.at_ms, static_cast<int64_t>(index) * 7);
    }
    EXPECT_EQ(playback_next(&play, error_, sizeof error_), playback_end);
    EXPECT_EQ(play.at_ms, 4000);
    fclose(play.file);
}

TEST_F(FollowFiles, AreNamedWithWhatIsWrongInARecording)
{
    const std::string head = "{\"format\":\"upgrade datagrams\",\"version\":1,\"clock\":1.5}\n";
    const std::vector<std::pair<std::string, std::string>> faults = {
        {"", ": empty"},
        {"\n", ": no line of a recording"},
        {"{\"format\":\"upgr", ": ends within a line"},
        {"{\"format\":\"other\",\"version\":1}\n", ": no recording of datagrams"},
        {"{\"format\":\"upgrade datagrams\",\"version\":2,\"a\":[]}\n", ": no line of a recording"},
        {"{\"format\":\"upgrade datagrams\",\"version\":2}\n",
         ": a recording of another version than 1, which this program knows"},
        {"{\"format\":\"upgrade datagrams\",\"version\":1,\"clock\":-1}\n",
         ": a recording with a wrong clock"},
        {head + "{\"at\":1,\"text\":\"UPG", ":2: ends within a line"},
        {head + '\0' + "\n", ":2: ends within a line"},
        {head + "{\"at\":1}\n", ":2: no datagram"},
        {head + "{\"at\":-1,\"text\":\"x\"}\n", ":2: no time"},
        {head + "{\"at\":2,\"hex\":\"0\"}\n", ":2: no datagram"},
        {head + "{\"at\":2,\"hex\":\"zz\"}\n", ":2: no datagram"},
        {head + "{\"at\":2,\"text\":\"x\"}\n{\"at\":2,\"text\":\"x\"}\n{\"at\":1,\"text\":\"x\"}\n",
         ":4: the time runs backwards"},
        {head + std::string(5000, ' ') + "\n", ":2: too long a line"},
        {head + "{\"at\":1,\"text\":\"" + std::string(300, 'x') + "\"}\n", ":2: no datagram"},
    };
    for (const auto &[content, fault] : faults) {
        std::ofstream(path_) << content;
        playback play;
        playback_result result = playback_error;
        if (playback_open(&play, path_.c_str(), error_, sizeof error_))
            while ((result = playback_next(&play, error_, sizeof error_)) == playback_datagram) {
            }
        EXPECT_EQ(result, playback_error);
        EXPECT_EQ(error_, path_ + fault);
        if (play.file != nullptr)
            fclose(play.file);
    }
}

TEST_F(FollowFiles, ServeAsSocketsThatNobodyElseListensOn)
{
    const mode_t mask = umask(0);
    receiver first;
    ASSERT_TRUE(open_receiver(&first)) << error_;
    EXPECT_EQ(umask(mask), 0U); // as it was
    EXPECT_EQ(mode(), 0600U);
    receiver second;
    EXPECT_FALSE(open_receiver(&second));
    EXPECT_EQ(error_, path_ + ": another program listens there");
    close(first.fd); // as if it had been killed
    ASSERT_TRUE(open_receiver(&second, 0622)) << error_;
    EXPECT_EQ(mode(), 0622U);
    // Somebody else's by now: it stays.
    fs::rename(path_, folder_ / "elsewhere");
    std::ofstream(path_) << "mine";
    receiver_close(&second);
    EXPECT_TRUE(fs::exists(path_));
    EXPECT_FALSE(open_receiver(&second));
    EXPECT_EQ(error_, path_ + ": is there and no socket");
    fs::remove(path_);
    ASSERT_TRUE(open_receiver(&second)) << error_;
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
    for (const std::string &wrong : {std::string(108, 'x'), std::string()})
        EXPECT_FALSE(receiver_open(&second, wrong.c_str(), 0600, error_, sizeof error_));
}

TEST(FollowOptions, ReadsAddressesAndRefusesWhatIsNone)
{
    follow_options options;
    const auto read = [&options](std::vector<std::string> words) {
        words.insert(words.begin(), "upgrade-follow");
        std::vector<char *> pointers;
        for (std::string &word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
        optind = 0;
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        const options_result result =
            read_options(&options, static_cast<int>(words.size()), pointers.data());
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), result == options_wrong ? 1 : 0);
        EXPECT_EQ(testing::internal::GetCapturedStdout().empty(), result != options_over);
        return result;
    };
    EXPECT_EQ(read({"--help"}), options_over);
    ASSERT_EQ(read({"--record=a"}), options_follow);
    EXPECT_EQ(options.mode, 0600U);
    EXPECT_EQ(options.wait_ms, -1);
    EXPECT_EQ(options.linger_ms, 30'000);
    ASSERT_EQ(read({"--wait", "2.5", "--mode=0666", "--speed", "0"}), options_follow);
    EXPECT_EQ(options.wait_ms, 2500);
    EXPECT_EQ(options.mode, 0666U);
    EXPECT_EQ(options.speed, 0);
    for (const char *wrong : {"--wait=-1", "--wait=x", "--wait=nan", "--mode=8", "--mode=1777",
                              "--speed=inf", "--speed=", "--no", "-x", "x", "--wait"})
        EXPECT_EQ(read({wrong}), options_wrong) << wrong;
    EXPECT_EQ(read({"--record", "a", "--replay", "b"}), options_wrong);
#ifdef UPGRADE_FOLLOW_WEB
    ASSERT_EQ(read({"--web=8080"}), options_follow);
    EXPECT_EQ(options.web_port, 8080);
    EXPECT_STREQ(options.web_address.data(), "127.0.0.1");
    ASSERT_EQ(read({"--web=[::]:0"}), options_follow);
    EXPECT_STREQ(options.web_address.data(), "::");
    for (const char *wrong : {"--web=", "--web=65536", "--web=:80", "--web=a:b", "--web=80x"})
        EXPECT_EQ(read({wrong}), options_wrong) << wrong;
#endif
}

} // namespace
