#include "common/PseudoTerminal.h"

#include "common/Bytes.h"
#include "common/Wait.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>

TEST(PseudoTerminal, KnowsWhetherItsDeviceIsUsed)
{
    const auto terminal = OpenPseudoTerminal();
    ASSERT_TRUE(terminal);
    EXPECT_FALSE(terminal->IsUsed());
    EXPECT_FALSE(terminal->HasInput());
    CUniqueFd device(open(terminal->strName.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_TRUE(device.IsOpen());
    EXPECT_TRUE(terminal->IsUsed());
    ASSERT_EQ(WriteAll(device.Get(), AsBytes("AT\r")), 3u);
    device.Reset();
    EXPECT_FALSE(terminal->IsUsed());
    EXPECT_TRUE(terminal->HasInput()); // which is left to be read
    char szText[8] = {};
    EXPECT_EQ(read(terminal->master.Get(), szText, sizeof(szText)), 3);
    EXPECT_STREQ(szText, "AT\r"); // raw: no carriage return becomes a line feed
    EXPECT_FALSE(terminal->HasInput());
}

TEST(PseudoTerminal, StaysRawForEachProgram)
{
    const auto terminal = OpenPseudoTerminal();
    ASSERT_TRUE(terminal);
    for (int i = 0; i < 2; ++i) {
        const CUniqueFd device(open(terminal->strName.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
        termios stTermios{};
        ASSERT_EQ(tcgetattr(device.Get(), &stTermios), 0);
        EXPECT_EQ(stTermios.c_lflag & (ICANON | ECHO | ISIG), 0u);
        EXPECT_EQ(stTermios.c_oflag & OPOST, 0u);
    }
}
