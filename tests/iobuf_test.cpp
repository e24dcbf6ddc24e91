// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/iobuf.h"

#include <gtest/gtest.h>

#include "download/downloaders.h"

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

TEST(DownloaderOpen, ChoosesByTheBeginningOfTheUrl)
{
    // The file-name check is the TFTP downloader's, so its message shows which row was taken.
    char tftp[] = "TfTpx";
    testing::internal::CaptureStderr();
    EXPECT_EQ(downloader_open(tftp), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "url = TfTpx\ntftp.c:tftp_downloader_open:505: FUNCTION_FAILED\n");
    EXPECT_STREQ(downloaders[0].word, "http");
    EXPECT_STREQ(downloaders[2].word, "ftp");
    EXPECT_EQ(downloaders[3].open, nullptr);
}
