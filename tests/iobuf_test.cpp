// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/iobuf.h"

#include <gtest/gtest.h>

TEST(Iobuf, MapsBlocksOnRequestAndSealsThemOnCommit)
{
    EXPECT_EQ(iobuf_create(4096, 0), nullptr);
    EXPECT_EQ(iobuf_create(4096, -5), nullptr);
    iobuf *buffer = iobuf_create(4096, 2);
    ASSERT_NE(buffer, nullptr);
    uint8_t *first = iobuf_request(buffer);
    EXPECT_EQ(iobuf_request(buffer), first);
    EXPECT_EQ(buffer->blocks[1], nullptr);
    first[4095] = 7;
    EXPECT_EQ(iobuf_commit(buffer), 0);
    EXPECT_EQ(first[4095], 7);
    EXPECT_DEATH(first[0] = 1, "");
    uint8_t *second = iobuf_request(buffer);
    EXPECT_NE(second, first);
    EXPECT_EQ(second[0], 0);
    EXPECT_EQ(iobuf_commit(buffer), 0);
    EXPECT_EQ(iobuf_request(buffer), nullptr); // full
    EXPECT_EQ(iobuf_commit(buffer), 0);
    EXPECT_EQ(buffer->current, 2);
    free(buffer);
}
