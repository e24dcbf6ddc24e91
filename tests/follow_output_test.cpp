// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the follower writes and reads: JSON, recordings, the terminal, the socket's place.
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
#include "tools/follow/report.h"
#include "tools/follow/terminal.h"

namespace {

using namespace follow;
namespace fs = std::filesystem;

std::string quoted(std::string_view text)
{
    char data[1024];
    text_buffer buffer = {data, sizeof data, 0, false};
    append_string(&buffer, text);
    return {data, buffer.size};
}

TEST(FollowJson, WritesStringsThatNobodyCanMisread)
{
    EXPECT_EQ(quoted("a \"b\" \\ </script>"), R"("a \"b\" \\ </script>")");
    EXPECT_EQ(quoted(std::string_view("\x1b[2J\n\0", 6)), R"("\u001b[2J\u000a\u0000")");
    EXPECT_EQ(quoted("\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80"), R"("\u00e4 \u20ac \ud83d\ude00")");
    // Not UTF-8: a lone continuation, overlong, a surrogate, beyond the last, cut.
    EXPECT_EQ(quoted("\x80"), R"("\ufffd")");
    EXPECT_EQ(quoted("\xc0\xaf"), R"("\ufffd\ufffd")");
    EXPECT_EQ(quoted("\xe0\x80\x80"), R"("\ufffd\ufffd\ufffd")");
    EXPECT_EQ(quoted("\xed\xa0\x80"), R"("\ufffd\ufffd\ufffd")");
    EXPECT_EQ(quoted("\xf4\x90\x80\x80"), R"("\ufffd\ufffd\ufffd\ufffd")");
    EXPECT_EQ(quoted("x\xe2\x82"), R"("x\ufffd\ufffd")");
}

TEST(FollowJson, ReadsFlatObjectsAndNothingElse)
{
    std::string line = R"( {"at" : 1.25 ,"text":"a\"\\\/\n\u00e4\ud83d\ude00","end":null} )";
    json_object object;
    ASSERT_TRUE(read_object(line.data(), line.size(), &object));
    ASSERT_EQ(object.count, 3U);
    EXPECT_EQ(find_member(&object, "at")->text, "1.25");
    EXPECT_EQ(find_member(&object, "text")->text, "a\"\\/\n\xc3\xa4\xf0\x9f\x98\x80");
    EXPECT_FALSE(find_member(&object, "end")->is_string);
    EXPECT_EQ(find_member(&object, "other"), nullptr);
    for (const char *wrong :
         {"", "{", "[]", "{}x", "{\"a\"}", "{\"a\":}", "{\"a\":1,}", "{\"a\":{}}", "{\"a\":[1]}",
          R"({"a":"b)", R"({"a":"\x"})", R"({"a":"\u12"})", R"({"a":"\ud800"})",
          R"({"a":"\ud800\u0041"})", R"({"a":"\udc00"})", R"({"a":"\u0000"})", "{\"a\":\"\n\"}",
          R"({"a":1,"b":1,"c":1,"d":1,"e":1,"f":1,"g":1,"h":1,"i":1})"}) {
        std::string text = wrong;
        EXPECT_FALSE(read_object(text.data(), text.size(), &object)) << wrong;
    }
}

TEST(FollowJson, ReadsSeconds)
{
    int64_t value = 0;
    EXPECT_TRUE(read_seconds("12.3456", &value));
    EXPECT_EQ(value, 12'345);
    EXPECT_TRUE(read_seconds("0", &value));
    EXPECT_EQ(value, 0);
    for (const char *wrong : {"", ".5", "1.", "-1", "1e3", "1 ", "999999999999", "nan"})
        EXPECT_FALSE(read_seconds(wrong, &value)) << wrong;
}

/// A folder of the test's own.
class FollowFiles : public testing::Test {
protected:
    fs::path folder_ = [] {
        std::string name = fs::temp_directory_path() / "followXXXXXX";
        return fs::path(mkdtemp(name.data()));
    }();
    ~FollowFiles() override
    {
        fs::remove_all(folder_);
    }
    std::string file(const char *name) const
    {
        return folder_ / name;
    }
    const std::string recording_ = file("recording");
};

using FollowRecording = FollowFiles;

TEST_F(FollowRecording, GivesBackEveryByteAndTime)
{
    std::mt19937 random(3);
    std::vector<std::string> texts = {"UPGRD_STAGE=WRITING", "", "\"quotes\" and \\"};
    while (texts.size() < 200) {
        texts.emplace_back(random() % (datagram_room + 1), '\0');
        for (char &byte : texts.back())
            byte = static_cast<char>(random());
    }
    recording made = {};
    ASSERT_TRUE(recording_create(&made, recording_.c_str()));
    for (size_t index = 0; index < texts.size(); index++)
        ASSERT_TRUE(recording_add(&made, texts[index].data(), texts[index].size(),
                                  5000 + static_cast<int64_t>(index) * 7, 1'700'000'000'123));
    ASSERT_TRUE(recording_close(&made, "done", 9000, 0));
    playback play;
    char error[256] = "";
    ASSERT_TRUE(playback_open(&play, recording_.c_str(), error, sizeof error)) << error;
    EXPECT_EQ(play.clock_ms, 1'700'000'000'123);
    for (size_t index = 0; index < texts.size(); index++) {
        ASSERT_EQ(playback_next(&play, error, sizeof error), playback_datagram) << error;
        ASSERT_EQ(std::string(play.data.data(), play.size), texts[index]);
        ASSERT_EQ(play.at_ms, static_cast<int64_t>(index) * 7);
    }
    EXPECT_EQ(playback_next(&play, error, sizeof error), playback_end);
    EXPECT_EQ(play.at_ms, 4000);
    fclose(play.file);
}

TEST_F(FollowRecording, SaysInOneLineWhatIsWrongWithAFile)
{
    const std::string head = "{\"format\":\"upgrade datagrams\",\"version\":1,\"clock\":1.5}\n";
    const std::vector<std::pair<std::string, std::string>> faults = {
        {"", ": empty"},
        {"\n", ": no line of a recording"},
        {"{\"format\":\"upgr", ": ends within a line"},
        {"{\"format\":\"other\",\"version\":1}\n", ": no recording of datagrams"},
        {"{\"format\":\"upgrade datagrams\",\"version\":2,\"new\":[]}\n",
         ": no line of a recording"},
        {"{\"format\":\"upgrade datagrams\",\"version\":2}\n",
         ": a recording of another version than 1, which this program knows"},
        {head + "{\"at\":1,\"text\":\"UPG", ":2: ends within a line"},
        {head + "{\"at\":1}\n", ":2: no datagram"},
        {head + "{\"at\":-1,\"text\":\"x\"}\n", ":2: no time"},
        {head + "{\"at\":2,\"hex\":\"0\"}\n", ":2: no datagram"},
        {head + "{\"at\":2,\"hex\":\"zz\"}\n", ":2: no datagram"},
        {head + "{\"at\":2,\"text\":\"x\"}\n{\"at\":1,\"text\":\"x\"}\n",
         ":3: the time runs backwards"},
        {head + std::string(5000, ' ') + "\n", ":2: too long a line"},
        {head + "{\"at\":1,\"text\":\"" + std::string(300, 'x') + "\"}\n", ":2: no datagram"},
    };
    for (const auto &[content, fault] : faults) {
        std::ofstream(recording_) << content;
        playback play;
        char error[512] = "";
        playback_result result = playback_error;
        if (playback_open(&play, recording_.c_str(), error, sizeof error))
            while ((result = playback_next(&play, error, sizeof error)) == playback_datagram) {
            }
        EXPECT_EQ(result, playback_error);
        EXPECT_EQ(error, recording_ + fault);
        if (play.file != nullptr)
            fclose(play.file);
    }
}

using FollowReceiver = FollowFiles;

TEST_F(FollowReceiver, TakesAPathThatNobodyListensOnAndGivesItBack)
{
    receiver first;
    char error[512] = "";
    const std::string path = file("s");
    ASSERT_TRUE(receiver_open(&first, path.c_str(), 0600, error, sizeof error)) << error;
    struct stat status = {};
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    receiver second;
    EXPECT_FALSE(receiver_open(&second, path.c_str(), 0600, error, sizeof error));
    EXPECT_EQ(error, path + ": another program listens there");
    close(first.fd); // as if it had been killed
    ASSERT_TRUE(receiver_open(&second, path.c_str(), 0622, error, sizeof error)) << error;
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0622U);
    // Somebody else's by now: it stays.
    fs::rename(path, file("t"));
    std::ofstream(path) << "mine";
    receiver_close(&second);
    EXPECT_TRUE(fs::exists(path));
    EXPECT_FALSE(receiver_open(&second, path.c_str(), 0600, error, sizeof error));
    EXPECT_EQ(error, path + ": is there and no socket");
    fs::remove(path);
    ASSERT_TRUE(receiver_open(&second, path.c_str(), 0600, error, sizeof error)) << error;
    receiver_close(&second);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_FALSE(receiver_open(&second, std::string(108, 'x').c_str(), 0600, error, sizeof error));
}

TEST_F(FollowReceiver, TakesTheBeginningOfADatagramOf64KiB)
{
    receiver one;
    char error[512] = "";
    ASSERT_TRUE(receiver_open(&one, file("s").c_str(), 0600, error, sizeof error)) << error;
    const int sender = socket(AF_UNIX, SOCK_DGRAM, 0);
    const std::string large(65'536, 'x');
    const auto *address = reinterpret_cast<const sockaddr *>(&one.address);
    ASSERT_EQ(sendto(sender, large.data(), large.size(), 0, address, sizeof one.address), 65'536);
    ASSERT_EQ(sendto(sender, "", 0, 0, address, sizeof one.address), 0);
    char data[datagram_room];
    EXPECT_EQ(receiver_take(&one, data), 65'536);
    EXPECT_EQ(receiver_take(&one, data), 0);
    EXPECT_EQ(receiver_take(&one, data), -1);
    close(sender);
    receiver_close(&one);
}

std::string frame_of(terminal *screen, const tracker &state, int64_t now_ms)
{
    char data[frame_limit];
    text_buffer buffer = {data, sizeof data, 0, false};
    append_frame(&buffer, screen, &state, now_ms);
    EXPECT_FALSE(buffer.full);
    return {data, buffer.size};
}

/// The lines that a terminal shows after `output`: what the frames use of its language.
std::vector<std::string> lines_of(const std::string &output)
{
    std::vector<std::string> lines(1);
    size_t row = 0;
    size_t column = 0;
    for (size_t at = 0; at < output.size(); at++) {
        if (output[at] == '\n') {
            column = 0;
            if (++row == lines.size())
                lines.emplace_back();
        } else if (output[at] == '\r') {
            column = 0;
        } else if (output[at] == '\033') {
            const size_t end = output.find_first_of("AJKm", at);
            const int count = atoi(output.c_str() + at + 2);
            if (output[end] == 'A')
                row -= static_cast<size_t>(count);
            if (output[end] == 'J' || output[end] == 'K')
                lines[row].resize(std::min(column, lines[row].size()));
            if (output[end] == 'J')
                lines.resize(row + 1);
            at = end;
        } else {
            lines[row].resize(std::max(lines[row].size(), column + 1), ' ');
            lines[row][column++] = output[at];
        }
    }
    return lines;
}

TEST(FollowTerminal, KeepsALineAStageAndTheOutcomeWithinEveryWidth)
{
    for (const int width : {1, 20, 40, 60, 80, 300}) {
        tracker state;
        tracker_start(&state);
        terminal screen = {};
        screen.redraws = true;
        screen.shown = phase_count;
        screen.width = width;
        std::string output = frame_of(&screen, state, 0);
        int64_t now_ms = 0;
        for (const char *text :
             {"STAGE=DOWNLOADING", "PERCENTAGE=50", "PERCENTAGE=100", "STAGE=WRITING",
              "PERCENTAGE=30", "STAGE=WRITING", "PERCENTAGE=100", "STAGE=VERIFYING",
              "PERCENTAGE=100", "STAGE=DONE", "PERCENTAGE=0"}) {
            now_ms += 61'000;
            tracker_take(&state, std::string("UPGRD_") + text, now_ms);
            output += frame_of(&screen, state, now_ms);
        }
        EXPECT_EQ(frame_of(&screen, state, now_ms + 1), ""); // the outcome stays as it is
        const std::vector<std::string> lines = lines_of(output);
        const auto line_limit = static_cast<size_t>(std::clamp(width, 20, 100) - 1);
        for (const std::string &line : lines)
            EXPECT_LE(line.size(), std::max(line_limit, size_t{23})) << line;
        ASSERT_GE(lines.size(), 6U);
        EXPECT_EQ(lines[0].substr(0, 8), "Download");
        EXPECT_EQ(lines[1].substr(0, 5), "Write");
        EXPECT_EQ(lines[2].substr(0, 6), "Verify");
        EXPECT_EQ(lines[3], "Done");
        for (int line = 0; line < 3; line++)
            EXPECT_NE(lines.at(static_cast<size_t>(line)).find("100 %"), std::string::npos);
    }
}

TEST(FollowTerminal, SaysPlainLinesOnceAndNoEscapes)
{
    tracker state;
    tracker_start(&state);
    terminal screen = {};
    screen.shown = phase_count;
    screen.width = 80;
    std::string output;
    const auto take = [&](const std::string &text, int64_t now_ms) {
        tracker_take(&state, text, now_ms);
        tracker_tick(&state, now_ms);
        output += frame_of(&screen, state, now_ms);
        output += frame_of(&screen, state, now_ms);
    };
    take("UPGRD_STAGE=WRITING", 0);
    for (int percent = 1; percent <= 60; percent++)
        take("UPGRD_PERCENTAGE=" + std::to_string(percent), percent * 1000);
    take("", 95'000);
    take("UPGRD_ERROR=\x1b[31m<b>\n", 96'000);
    EXPECT_EQ(output,
              "Writing the new firmware. Do not switch the device off.\n"
              "Write      [########..........................]  25 %   0:25  about 1:17 left\n"
              "Write      [#################.................]  50 %   0:50  about 0:52 left\n"
              "Writing the new firmware. Do not switch the device off. No word for 35 s. The\n"
              "flash may refuse a block, which is tried again and again, or the device may\n"
              "have been reset.\n"
              "Write      [####################..............]  60 %   1:36\n"
              "Upgrade failed: ?[31m<b>?\n"
              "The upgrade ended with an error that is not known here. Ask for support, with\n"
              "the text of the error.\n");
}

TEST(FollowReport, NeedsNoMoreThanItsLimitAndCarriesNoMarkupOfTheSender)
{
    tracker state;
    tracker_start(&state);
    tracker_take(&state, "UPGRD_ERROR=\"</script>\x1b\xff" + std::string(90, 'x'), 10);
    state.run = 4'000'000'000;
    char data[report_limit];
    text_buffer report = {data, sizeof data, 0, false};
    append_report(&report, &state, 1'000'000'000'000, 4'000'000'000'000);
    EXPECT_FALSE(report.full);
    const std::string text(data, report.size);
    EXPECT_NE(text.find(R"("error":"\"</script>\u001b\ufffdxxx)"), std::string::npos) << text;
    EXPECT_NE(text.find(R"("outcome":"refused","exit_status":1)"), std::string::npos);
    EXPECT_EQ(text.find_first_of("\x1b\xff\n"), std::string::npos);
}

TEST(FollowOptions, ReadsAddressesAndRefusesWhatIsNone)
{
    const auto read = [](std::vector<std::string> words, follow_options *options) {
        words.insert(words.begin(), "upgrade-follow");
        std::vector<char *> pointers;
        for (std::string &word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
        optind = 0;
        testing::internal::CaptureStderr();
        const options_result result =
            read_options(options, static_cast<int>(words.size()), pointers.data());
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), result == options_wrong ? 1 : 0);
        return result;
    };
    follow_options options;
    ASSERT_EQ(read({"--wait", "2.5", "--mode=0666", "--speed", "0"}, &options), options_follow);
    EXPECT_EQ(options.wait_ms, 2500);
    EXPECT_EQ(options.mode, 0666U);
    EXPECT_EQ(options.speed, 0);
    for (const char *wrong : {"--wait=-1", "--wait=x", "--wait=nan", "--mode=8", "--mode=1777",
                              "--speed=inf", "--speed=", "--no", "-x", "x", "--wait"})
        EXPECT_EQ(read({wrong}, &options), options_wrong) << wrong;
    EXPECT_EQ(read({"--record", "a", "--replay", "b"}, &options), options_wrong);
#ifdef UPGRADE_FOLLOW_WEB
    ASSERT_EQ(read({"--web=8080"}, &options), options_follow);
    EXPECT_EQ(options.web_port, 8080);
    EXPECT_STREQ(options.web_address.data(), "127.0.0.1");
    ASSERT_EQ(read({"--web=[::]:0"}, &options), options_follow);
    EXPECT_STREQ(options.web_address.data(), "::");
    for (const char *wrong : {"--web=", "--web=65536", "--web=:80", "--web=a:b", "--web=80x"})
        EXPECT_EQ(read({wrong}, &options), options_wrong) << wrong;
#endif
}

} // namespace
