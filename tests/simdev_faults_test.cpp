// SPDX-License-Identifier: GPL-2.0-or-later
//
// The texts that faults are asked for with.
#include <gtest/gtest.h>
#include <string>

#include "tools/simdev/core/faults.h"

namespace {

TEST(SimdevFaults, AreReadToTheLetter)
{
    const auto parse = [](const char *text, sim_fault *fault) {
        char error[512] = "";
        return fault_parse(text, fault, error, sizeof error) == 0 ? std::string() : error;
    };
    sim_fault fault;
    ASSERT_EQ(parse("bit-flip@7x3:bit=5", &fault), "");
    EXPECT_EQ(fault.kind, fault_bit_flip);
    EXPECT_EQ(fault.at, 7);
    EXPECT_EQ(fault.times, 3);
    EXPECT_EQ(fault.bytes, 5);
    ASSERT_EQ(parse("open-error", &fault), "");
    EXPECT_EQ(fault.at, 1);
    EXPECT_EQ(fault.times, 1);
    EXPECT_EQ(fault.partition, -1);
    ASSERT_EQ(parse("gpio-refuse@2", &fault), "");
    EXPECT_EQ(fault.times, INT64_MAX);
    for (const char *good :
         {"cut@1", "server-cut@0", "watchdog:seconds=86400", "closed:fd=2",
          "receiver-stuck:receiver=1", "sync-slow:seconds=1", "server-drip:seconds=0,bytes=1"})
        EXPECT_EQ(parse(good, &fault), "") << good;
    for (const char *bad : {"cut@0",
                            "cut",
                            "cut@1x2",
                            "cut@",
                            "cut@2147483648",
                            "cut@1 ",
                            "cuts@1",
                            "Cut@1",
                            "",
                            "watchdog",
                            "watchdog:seconds=0",
                            "watchdog:seconds=86401",
                            "closed:fd=3",
                            "closed:fd=",
                            "receiver-stuck:receiver=0",
                            "receiver-stuck:receiver=3",
                            "sync-slow",
                            "script-hang@1",
                            "short-write@1:bit=1",
                            "server-drip:bytes=0",
                            "server-drip:bytes=1,",
                            "write-error@1x0"})
        EXPECT_NE(parse(bad, &fault), "") << bad;
    EXPECT_EQ(parse("cut@1x2", &fault),
              "fault \"cut@1x2\": something behind it that does not belong "
              "there (the form is cut@N[:torn=K])");
}

} // namespace
