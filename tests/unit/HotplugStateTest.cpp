#include "hotplug/StateFile.h"
#include "hotplug/TextFile.h"
#include "support/VexProcess.h"

#include <gtest/gtest.h>

namespace
{
CNumbers Parsed(const std::string& strText)
{
    std::string strError;
    const auto numbers = CNumbers::Parse(strText, strError);
    EXPECT_TRUE(numbers) << strError;
    return numbers.value_or(CNumbers());
}
} // namespace

TEST(HotplugNumbers, ANewModemGetsTheLowestFreeNumber)
{
    CNumbers numbers = Parsed("1 a\n3 c d\n");
    EXPECT_EQ(numbers.PortNumber("b", SERIAL_TYPE_DIAG), 201U);
    EXPECT_EQ(numbers.PortNumber("e", SERIAL_TYPE_AT), 404U);
    EXPECT_EQ(numbers.PortNumber("c d", SERIAL_TYPE_GU), 303U);
    EXPECT_TRUE(numbers.Forget("a"));
    EXPECT_FALSE(numbers.Forget("a"));
    EXPECT_EQ(numbers.PortNumber("f", SERIAL_TYPE_DATA), 102U);
    EXPECT_EQ(numbers.Text(),
              "# Numbers of modems by the path of their USB device: the ports of modem n are 100 n + 1 to + 4.\n"
              "2 b\n3 c d\n4 e\n1 f\n");
    EXPECT_EQ(Parsed(numbers.Text()), numbers);
    EXPECT_EQ(Parsed("2 b\n").All(), (std::vector<uint32_t>{201, 202, 203, 204}));
}

TEST(HotplugNumbers, ALineThatIsWrongIsTold)
{
    for (const char* pszText : {"1 a\n1 b\n", "# x\na 1\n", "1 a\n2 a\n", "1 a\n2\n", "1 a\n2 \n", "1 a\n0 b\n",
                                "1 a\n-2 b\n", "1 a\n42949672 b\n", "1 a\n99999999999 b\n"}) {
        std::string strError;
        EXPECT_FALSE(CNumbers::Parse(pszText, strError)) << pszText;
        EXPECT_EQ(strError, "line 2 is no number of its own with a path of its own") << pszText;
    }
}

TEST(HotplugState, NumbersAreKeptInTheFile)
{
    const CTempDir dir;
    const std::string strPath = dir.Path() + "/var/hotplug.state";
    std::string strError;
    CNumbers numbers;
    {
        CStateFile file(strPath);
        EXPECT_TRUE(file.Lock(strError)); // makes the folder
        EXPECT_EQ(file.Load(strError), CNumbers());
        EXPECT_TRUE(file.Save(numbers, strError));
        EXPECT_EQ(dir.Read("var/hotplug.state"), "") << "nothing to keep yet";
        (void)numbers.PortNumber("a", SERIAL_TYPE_DIAG);
        EXPECT_TRUE(file.Save(numbers, strError));
    }
    CStateFile next(strPath);
    EXPECT_EQ(next.Load(strError), numbers);
    EXPECT_EQ(strError, "");
}

TEST(HotplugState, AFileThatCannotBeReadIsToldAndBegunAnew)
{
    const CTempDir dir;
    dir.Write("state", "1 a\nnonsense\n");
    CStateFile file(dir.Path() + "/state");
    std::string strError;
    CNumbers numbers = file.Load(strError);
    EXPECT_EQ(strError,
              dir.Path() + "/state: line 2 is no number of its own with a path of its own; numbers begin anew");
    EXPECT_EQ(numbers.PortNumber("b", SERIAL_TYPE_DIAG), 101U);
    EXPECT_TRUE(file.Save(numbers, strError));
    EXPECT_NE(dir.Read("state").find("\n1 b\n"), std::string::npos);

    CStateFile folder(dir.Path());
    EXPECT_EQ(folder.Load(strError), CNumbers());
    EXPECT_EQ(strError, dir.Path() + ": Is a directory; numbers begin anew");
}

TEST(HotplugState, AFileThatCannotBeWrittenIsToldAndTheOldOneStays)
{
    const CTempDir dir;
    dir.Write("state", "1 a\n");
    dir.Write("state.new/x", ""); // a folder in the place of the temporary file
    CStateFile file(dir.Path() + "/state");
    std::string strError;
    CNumbers numbers = file.Load(strError);
    (void)numbers.PortNumber("b", SERIAL_TYPE_DIAG);
    EXPECT_FALSE(file.Save(numbers, strError));
    EXPECT_EQ(strError, dir.Path() + "/state: Is a directory; new numbers are not kept");
    EXPECT_EQ(dir.Read("state"), "1 a\n");
}

TEST(HotplugState, OneProgramHasTheFile)
{
    const CTempDir dir;
    std::string strError;
    auto pFirst = std::make_unique<CStateFile>(dir.Path() + "/state");
    CStateFile second(dir.Path() + "/state");
    EXPECT_TRUE(pFirst->Lock(strError));
    EXPECT_FALSE(second.Lock(strError));
    EXPECT_EQ(strError, dir.Path() + "/state is in use by another vex-hotplug");
    pFirst.reset();
    EXPECT_TRUE(second.Lock(strError));
}

TEST(HotplugState, ATextFileEndsAtOneMebibyte)
{
    const CTempDir dir;
    std::string strError;
    dir.Write("whole", std::string(1024 * 1024, 'x'));
    dir.Write("larger", std::string(1024 * 1024 + 1, 'x'));
    EXPECT_EQ(ReadTextFile(dir.Path() + "/whole", strError)->size(), 1024U * 1024U);
    EXPECT_FALSE(ReadTextFile(dir.Path() + "/larger", strError));
    EXPECT_EQ(strError, "File too large");
}
