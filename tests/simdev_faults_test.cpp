// SPDX-License-Identifier: GPL-2.0-or-later
//
// The texts that faults are asked for with.
#include <gtest/gtest.h>
#include <string>
#include <vector>

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
    EXPECT_EQ(fault.place, -1);
    ASSERT_EQ(parse("server-drip", &fault), "");
    EXPECT_EQ(fault.times, INT64_MAX);
    EXPECT_EQ(fault.seconds, 1);
    for (const char *good :
         {"cut@1", "server-cut@0", "watchdog:seconds=86400", "closed:fd=2",
          "receiver-stuck:receiver=1", "sync-slow:seconds=1", "server-drip:seconds=0,bytes=1"})
        EXPECT_EQ(parse(good, &fault), "") << good;
    const struct {
        const char *reason;
        std::vector<const char *> texts;
    } bad[] = {
        {"no usable number behind \"@\"", {"cut@0", "cut@", "cut@2147483648"}},
        {"\"@N\" is missing", {"cut", "cutx2"}},
        {"something behind it that does not belong there", {"cut@1x2", "cut@1 ", "script-hang@1"}},
        {"there is no fault of this name", {"", "cuts@1", "Cut@1"}},
        {"no usable number behind \"x\"", {"write-error@1x0", "write-error@1x"}},
        {"a key is missing", {"watchdog", "sync-slow"}},
        {"a value is no number or out of its range",
         {"watchdog:seconds=0", "watchdog:seconds=86401", "closed:fd=3", "closed:fd=",
          "receiver-stuck:receiver=0", "receiver-stuck:receiver=3", "server-drip:bytes=0"}},
        {"unknown key", {"short-write@1:bit=1", "watchdog:sec=3", "server-drip:bytes=1,"}},
        {"something behind a value", {"server-drip:bytes=1;seconds=2", "closed:fd=1x"}},
    };
    for (const auto &[reason, texts] : bad)
        for (const char *text : texts)
            EXPECT_TRUE(
                parse(text, &fault).starts_with("fault \"" + std::string(text) + "\": " + reason))
                << parse(text, &fault);
    EXPECT_TRUE(parse("cut@1x2", &fault).ends_with(" (the form is cut@N[:torn=K])"));
}

TEST(SimdevFaults, AreThirtyTwoAtTheMost)
{
    std::string list;
    char error[512];
    for (int count = 0; count < 32; count++)
        list += "cut@1;";
    EXPECT_EQ(faults_start(list.c_str(), error, sizeof error), 0);
    EXPECT_EQ(faults_start((list + "cut@1").c_str(), error, sizeof error), -1);
    EXPECT_STREQ(error, "too many faults");
    EXPECT_EQ(faults_start(("cut@1" + std::string(252, '0')).c_str(), error, sizeof error), -1);
}

} // namespace
