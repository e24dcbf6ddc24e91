// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/scripted_peer.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>

namespace {

scripted_peers peers(const std::string &script)
{
    return {{reinterpret_cast<const uint8_t *>(script.data()), script.size()}};
}

/// What one read of at most `size` bytes gives: the bytes, or "EAGAIN" and the like.
std::string read(scripted_peer &peer, size_t size = 100)
{
    std::string bytes(size, '\0');
    const ssize_t count = peer.read(bytes.data(), size);
    if (count < 0)
        return strerrorname_np(errno);
    return bytes.substr(0, static_cast<size_t>(count));
}

// Pauses, closed connections and interruptions show in the FTP downloader's tests.
TEST(ScriptedPeer, WaitsForLinesFailsReadsOnceAndSendsAnyByteLiterally)
{
    const std::string script =
        "hello" PEER_AWAITS_LINE "1" PEER_AWAITS_LINE
        "2" PEER_FAILS PEER_SILENCE PEER_SILENCE PEER_LITERAL PEER_CLOSE "b" PEER_CLOSE "next";
    scripted_peers all = peers(script);
    scripted_peer peer = all.connect();
    EXPECT_TRUE(peer.readable());
    EXPECT_EQ(read(peer, 2), "he");
    EXPECT_EQ(read(peer), "llo");
    for (int turn = 0; turn < 2; turn++) { // without end
        EXPECT_FALSE(peer.readable());
        EXPECT_EQ(read(peer), "EAGAIN");
        peer.take("no end", 6);
    }
    peer.take(" of it\nanother\n", 15);
    EXPECT_TRUE(peer.readable());
    EXPECT_EQ(read(peer), "1");
    EXPECT_EQ(read(peer), "2");
    EXPECT_EQ(read(peer), "EIO");
    EXPECT_EQ(read(peer), "EAGAIN");
    EXPECT_FALSE(peer.readable()); // this silence ends
    EXPECT_TRUE(peer.readable());
    EXPECT_EQ(read(peer), PEER_CLOSE "b");
    EXPECT_TRUE(peer.readable());
    for (int turn = 0; turn < 2; turn++)
        EXPECT_EQ(read(peer), "");
    scripted_peer next = all.connect();
    EXPECT_EQ(read(next), "next");
    scripted_peer beyond = all.connect();
    EXPECT_EQ(read(beyond), "");
}

TEST(NthCall, FailsTheOneThatItIsToldTo)
{
    nth_call none;
    nth_call second = {.fails_at = 2};
    EXPECT_FALSE(none.fails());
    EXPECT_FALSE(second.fails());
    errno = 0;
    EXPECT_TRUE(second.fails());
    EXPECT_EQ(errno, EIO);
    EXPECT_FALSE(second.fails());
}

} // namespace
