#include "client/AtTerminal.h"

#include "support/TestBytes.h"
#include "support/VexProcess.h"
#include "support/WaitFor.h"

#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> Type(CAtTyping& typing, const std::string& strKeys)
{
    std::vector<std::string> commands;
    for (const char c : strKeys)
        if (const auto command = typing.Take(static_cast<unsigned char>(c)))
            commands.push_back(*command);
    return commands;
}

/// A terminal, and its link in a folder of its own.
class AtTerminal : public testing::Test
{
protected:
    AtTerminal() { EXPECT_TRUE(m_terminal.Open(Link(), m_strError)) << m_strError; }

    std::string Link() const { return m_dir.Path() + "/modem"; }
    CUniqueFd OpenLink() const { return CUniqueFd(open(Link().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)); }

    CTempDir m_dir;
    CAtTerminal m_terminal;
    std::string m_strError;
};
} // namespace

TEST(AtTyping, KeysAreGatheredIntoCommands)
{
    CAtTyping typing;
    EXPECT_THAT(Type(typing, "AT"), IsEmpty());
    EXPECT_THAT(Type(typing, "I\r\nAT+CSQ\r\n\rA"), ElementsAre("ATI\r", "AT+CSQ\r", "\r"));
    typing.Forget();
    EXPECT_THAT(Type(typing, "AT+X\b\x7FZ\r"), ElementsAre("ATZ\r")); // "AT+X" less "X" and "+", then "Z"
    EXPECT_THAT(Type(typing, "\b\bAT\r"), ElementsAre("AT\r"));
    EXPECT_THAT(Type(typing, "a text\x1A"
                             "another\x1B"),
                ElementsAre("a text\x1A", "another\x1B"));
}

TEST(AtTyping, WhatIsTooLongIsLeftOut)
{
    CAtTyping typing;
    const std::string strLong(CAtTyping::LONGEST, 'a');
    EXPECT_THAT(Type(typing, strLong + "b\r"), ElementsAre(strLong + "\r"));
}

TEST_F(AtTerminal, CarriesBytesBothWaysWhileAProgramHasItOpen)
{
    EXPECT_FALSE(m_terminal.IsUsed());
    m_terminal.Write(Hex("41")); // nobody is there
    const CUniqueFd program = OpenLink();
    ASSERT_TRUE(program.IsOpen());
    EXPECT_TRUE(m_terminal.IsUsed());
    m_terminal.Write(Hex("0D 0A 4F 4B 0D 0A"));
    Bytes got(10, 0);
    ASSERT_TRUE(WaitFor([&] { return read(program.Get(), got.data(), got.size()) == 6; }));
    EXPECT_EQ(Bytes(Slice(ByteView(got), 0, 6)), Hex("0D 0A 4F 4B 0D 0A"));
    ASSERT_EQ(write(program.Get(), "AT\r\x03", 4), 4);
    Bytes typed;
    EXPECT_TRUE(WaitFor([&] {
        typed = Join(typed, m_terminal.Read());
        return typed.size() == 4;
    }));
    EXPECT_EQ(typed, Hex("41 54 0D 03")); // raw: no line editing, no signals
}

TEST_F(AtTerminal, WhatAProgramDoesntReadIsKeptUpToALimit)
{
    const CUniqueFd program = OpenLink();
    const Bytes line = Fill(1000, 'x');
    for (int i = 0; i < 1000; ++i)
        m_terminal.Write(line); // never waits
    size_t szGot = 0;
    EXPECT_TRUE(WaitFor([&] {
        Bytes got(4096, 0);
        const ssize_t lRead = read(program.Get(), got.data(), got.size());
        szGot += lRead > 0 ? static_cast<size_t>(lRead) : 0;
        m_terminal.Write({});
        return szGot >= 64'000;
    })) << szGot;
    EXPECT_LT(szGot, 200'000u);
}

TEST_F(AtTerminal, TheLinkGoesWithIt)
{
    EXPECT_EQ(std::filesystem::read_symlink(Link()), m_terminal.Name());
    {
        CAtTerminal other;
        ASSERT_TRUE(other.Open(Link(), m_strError)) << m_strError; // takes the link over
        EXPECT_EQ(std::filesystem::read_symlink(Link()), other.Name());
    }
    EXPECT_FALSE(std::filesystem::is_symlink(Link()));
}

TEST_F(AtTerminal, AFileIsNotReplaced)
{
    m_dir.Write("file", "kept");
    CAtTerminal other;
    EXPECT_FALSE(other.Open(m_dir.Path() + "/file", m_strError));
    EXPECT_EQ(m_strError, m_dir.Path() + "/file: File exists");
    EXPECT_EQ(m_dir.Read("file"), "kept");
    EXPECT_FALSE(CAtTerminal().Open("/does/not/exist/link", m_strError));
    EXPECT_EQ(m_strError, "/does/not/exist/link: No such file or directory");
}
