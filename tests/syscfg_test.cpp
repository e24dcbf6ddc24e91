// SPDX-License-Identifier: GPL-2.0-or-later
//
// The default provider on a file in a folder of each test's own (SYSCFG_FILE is relative).
#include "platform/syscfg.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

namespace {

namespace fs = std::filesystem;

class Syscfg : public testing::Test {
protected:
    void SetUp() override
    {
        folder_ = mkdtemp(folder_.data());
        fs::current_path(folder_);
    }
    void TearDown() override
    {
        fs::current_path("/");
        fs::remove_all(folder_);
    }

private:
    std::string folder_ = fs::temp_directory_path() / "syscfg-XXXXXX";
};

TEST_F(Syscfg, FindsTheFirstLineWithExactlyTheKey)
{
    EXPECT_EQ(getsyscfg("WD"), nullptr); // no file: nothing is set
    std::ofstream(SYSCFG_FILE) << "VENDOR_KEY_OLD=old\n#WD=1\nno separator\nWD= 5 =x\nWD=6\n"
                                  "EMPTY=\n=nameless\nA=B=c\nLAST=without newline";
    EXPECT_STREQ(getsyscfg("WD"), " 5 =x");
    EXPECT_STREQ(getsyscfg("EMPTY"), "");
    EXPECT_STREQ(getsyscfg("A"), "B=c");
    EXPECT_STREQ(getsyscfg("LAST"), "without newline");
    for (const char *unset : {"VENDOR_KEY", "VENDOR_KEY_OLD_", "D", "A=B", "#WD", "no separator"})
        EXPECT_EQ(getsyscfg(unset), nullptr) << unset;
}

TEST_F(Syscfg, EndsTheProgramWhenItsFileCannotBeRead)
{
    fs::create_directory(SYSCFG_FILE); // opens, and then fails to be read
    EXPECT_EXIT(getsyscfg("WD"), testing::ExitedWithCode(1),
                "^cannot read " SYSCFG_FILE ": Is a directory\n$");
    fs::remove(SYSCFG_FILE);
    fs::create_symlink(SYSCFG_FILE, SYSCFG_FILE);
    EXPECT_EXIT(getsyscfg("WD"), testing::ExitedWithCode(1),
                "^cannot read " SYSCFG_FILE ": Too many levels of symbolic links\n$");
}

} // namespace
