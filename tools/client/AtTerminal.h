#pragma once

#include "common/Bytes.h"
#include "common/PseudoTerminal.h"

#include <optional>
#include <string>
#include <vector>

/// Gathers what is typed at a terminal into whole commands.
class CAtTyping
{
public:
    static constexpr size_t LONGEST = 4096; // characters beyond are left out

    /// The next key; a whole command, with its last character, when this was it: carriage return, or Ctrl-Z or Escape
    /// behind a text. Line feeds mean nothing, backspace takes the last character away.
    std::optional<std::string> Take(unsigned char ucKey);
    /// Whoever typed has gone.
    void Forget() { m_strTyped.clear(); }

private:
    std::string m_strTyped;
};

/// A pseudo terminal with a link to it, for programs that talk to a modem's AT port. The link goes with the object.
class CAtTerminal
{
public:
    ~CAtTerminal();
    CAtTerminal() = default;
    CAtTerminal(const CAtTerminal&) = delete;
    CAtTerminal& operator=(const CAtTerminal&) = delete;

    /// False, with what is wrong. A link that leads nowhere, or to a terminal, is replaced; nothing else is.
    [[nodiscard]] bool Open(const std::string& strLink, std::string& strError);
    const std::string& Name() const { return m_terminal.strName; }

    /// Whether a program has it open, or has left something behind.
    bool IsUsed() const { return m_terminal.IsUsed() || m_terminal.HasInput(); }
    /// To wait on while it is used; at other times it would be readable for ever.
    int Fd() const { return m_terminal.master.Get(); }
    /// What has been typed, without waiting; empty for nothing.
    std::vector<unsigned char> Read() const;
    /// Gives the bytes to the program: what it doesn't take at once is kept up to a limit, then lost. Without a
    /// program all is lost.
    void Write(ByteView bytes);

private:
    void Drain();

    PSEUDO_TERMINAL m_terminal;
    std::string m_strLink;
    std::vector<unsigned char> m_vecWaiting;
};
