// SPDX-License-Identifier: GPL-2.0-or-later
//
// What only fuzzers use of scripted peers; the rest shows in the tests of the protocols.
#include "tools/simdev/core/scripted_peer.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>

TEST(ScriptedPeer, SendsAnyByteLiterallyAndIsOneOfSeveral)
{
    const std::string script = "a" PEER_LITERAL PEER_CLOSE "b" PEER_CLOSE "next";
    scripted_peers all = {{reinterpret_cast<const uint8_t *>(script.data()), script.size()}};
    for (const char *expected : {"a" PEER_CLOSE "b", "next", ""}) {
        scripted_peer peer = all.connect();
        std::string bytes(100, '\0');
        const ssize_t count = peer.read(bytes.data(), bytes.size());
        ASSERT_GE(count, 0);
        EXPECT_EQ(bytes.substr(0, static_cast<size_t>(count)), expected);
        EXPECT_EQ(peer.read(bytes.data(), bytes.size()), 0);
    }
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
